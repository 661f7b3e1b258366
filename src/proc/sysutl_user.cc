// Names of users.
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "core/ks_frame.h"
#include "proc/sysutl_internal.h"
#include "stg.h"
#include "sysutl.h"

using namespace ks;

namespace {

constexpr size_t kFullNameBytes = 256;  // of the password entry's field

// A name with the answer that was found for it, both on the heap; the answer may be NULL.
struct Answer {
  char *name;
  char *text;

  bool is_for(const char *asked) const { return name != nullptr && strcmp(name, asked) == 0; }

  // A signal routine sees the old pair or the new one.
  void replace(char *new_name, char *new_text) {
    signals_held([&] {
      stg_free(name);
      stg_free(text);
      name = new_name;
      text = new_text;
    });
  }
};

struct State {
  const char *login_name;  // NULL: none known; one that was given out is never freed
  uid_t login_uid;         // the real user that it is for
  Answer full_name;        // the user asked for last
  Answer my_full_name;
};
constinit State state = {};

// To be called with signals held back; the answer is libc's.
const char *find_login_name(uid_t uid) {
  if (const char *name = getlogin(); name != nullptr) {
    const passwd *entry = ask_for_entry([&] { return getpwnam(name); });
    if (entry != nullptr && entry->pw_uid == uid) return name;
  }
  const passwd *entry = ask_for_entry([&] { return getpwuid(uid); });
  return entry != nullptr ? entry->pw_name : nullptr;
}

[[gnu::noinline]] const char *ask_login_name(uid_t uid) {
  const char *copy = nullptr;
  signals_held([&] {
    const char *name = find_login_name(uid);
    if (name == nullptr) return;
    copy = stg_strdup(name);
    if (copy == nullptr) return;
    state.login_name = copy;
    state.login_uid = uid;
  });
  return copy;
}

// What the field says of `user`'s full name, on the heap; NULL without storage.
char *expand_full_name(const char *field, const char *user) {
  std::string_view head(field, strnlen(field, kFullNameBytes));
  head = std::string_view(field, std::min(head.find(','), head.size()));
  std::string_view name, tail;
  if (const size_t at = head.find('&'); at != head.npos) {
    name = user;
    tail = head;
    tail.remove_prefix(at + 1);
    head = std::string_view(field, at);
  }

  char *full_name = static_cast<char *>(stg_malloc(head.size() + name.size() + tail.size() + 1));
  if (full_name == nullptr) return nullptr;
  char *end = full_name;
  for (std::string_view part : {head, name, tail}) end = std::copy(part.begin(), part.end(), end);
  *end = '\0';
  return full_name;
}

[[gnu::noinline]] const char *ask_full_name(const char *user) {
  char *full_name = nullptr;
  signals_held([&] {
    char *name = stg_strdup(user);
    if (name == nullptr) return;
    const passwd *entry = ask_for_entry([&] { return getpwnam(user); });
    if (entry == nullptr && may_be_found_later()) return stg_free(name);
    const char *field = entry != nullptr ? entry->pw_gecos : nullptr;
    if (field != nullptr) full_name = expand_full_name(field, user);
    if (field != nullptr && full_name == nullptr) return stg_free(name);
    state.full_name.replace(name, full_name);
  });
  return full_name;
}

[[gnu::noinline]] const char *ask_my_full_name(const char *login_name) {
  char *text = nullptr;
  signals_held([&] {
    const char *full_name = sysutl_user_to_fullname(login_name);
    char *name = stg_strdup(login_name);
    if (name == nullptr) return;
    text = stg_strdup(full_name != nullptr ? full_name : login_name);
    if (text == nullptr) return stg_free(name);
    state.my_full_name.replace(name, text);
  });
  return text;
}

}  // namespace

const char *sysutl_myloginname() {
  const uid_t uid = getuid();
  if (state.login_name != nullptr && state.login_uid == uid) return state.login_name;
  return ask_login_name(uid);
}

const char *sysutl_user_to_fullname(const char *name) {
  if (state.full_name.is_for(name)) return state.full_name.text;
  return ask_full_name(name);
}

const char *sysutl_myfullname() {
  const char *login_name = sysutl_myloginname();
  if (login_name == nullptr) return nullptr;
  if (state.my_full_name.is_for(login_name)) return state.my_full_name.text;
  return ask_my_full_name(login_name);
}
