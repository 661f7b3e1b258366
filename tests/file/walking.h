// Walks for tests: what their callbacks were told, in order.
#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "fileutl.h"

namespace ks_test {

// A call of a callback. A NULL text is "NULL".
struct WalkCall {
  int callback;  // its number in the chain
  std::string path, root, directory, name;
  mode_t type;
  int phase, depth;
  bool operator==(const WalkCall &) const = default;
};

inline void PrintTo(const WalkCall &call, std::ostream *out) {
  *out << "callback " << call.callback << " " << call.path << " root " << call.root << " directory "
       << call.directory << " name " << call.name << " type " << std::oct << call.type << std::dec
       << " phase " << call.phase << " depth " << call.depth;
}

// Callbacks that note their calls and answer as they are told.
class Walker {
 public:
  // The result of a call, which has been noted already.
  using Answer = std::function<int(const WalkCall &)>;

  explicit Walker(const std::vector<int> &whens, Answer answer = nullptr)
      : answer_(std::move(answer)), callbacks_(whens.size()), links_(whens.size()) {
    for (size_t i = 0; i < whens.size(); ++i) {
      links_[i] = {this, static_cast<int>(i)};
      callbacks_[i] = {i + 1 < whens.size() ? &callbacks_[i + 1] : nullptr, whens[i], call,
                       &links_[i]};
    }
  }
  Walker(const Walker &) = delete;
  Walker &operator=(const Walker &) = delete;

  const fileutl_walk_callback_t *chain() const {
    return callbacks_.empty() ? nullptr : callbacks_.data();
  }
  const std::vector<WalkCall> &calls() const { return calls_; }

  // "path phase depth" of each call, with the root's path left out of the path.
  std::vector<std::string> steps() const {
    std::vector<std::string> steps;
    for (const WalkCall &call : calls_) {
      steps.push_back("." + call.path.substr(call.root.size()) + " " + std::to_string(call.phase) +
                      " " + std::to_string(call.depth));
    }
    return steps;
  }

 private:
  struct Link {
    Walker *walker;
    int number;
  };

  static std::string text(const char *text) { return text != nullptr ? text : "NULL"; }

  static int call(void *argument, const char *path, const char *root, const char *directory,
                  const char *name, const fileutl_stat_t *record, int phase, int depth) {
    const Link &link = *static_cast<Link *>(argument);
    Walker &self = *link.walker;
    self.calls_.push_back({link.number, text(path), text(root), text(directory), text(name),
                           record->st_mode & S_IFMT, phase, depth});
    return self.answer_ ? self.answer_(self.calls_.back()) : 0;
  }

  Answer answer_;
  std::vector<fileutl_walk_callback_t> callbacks_;
  std::vector<Link> links_;
  std::vector<WalkCall> calls_;
};

}  // namespace ks_test
