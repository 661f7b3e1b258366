// The product's home, and the modes: what is read once is read cold.
#include <arpa/inet.h>

#include <cstdlib>
#include <cstring>

#include "ks_product.h"
#include "sweep/answers.h"

using namespace ks_test;

namespace {

struct State {
  char folder[KS_PRODUCT_DIR_SIZE];
};
State state;

void set_home() {
  warm_messages();
  setenv("TALLOWBAYHOME", "/srv/product", 1);
}

bool is_folder(const char *answer, const char *expected) {
  return answer == state.folder && strcmp(answer, expected) == 0;
}

// A mode that its variable turns on.
constexpr char kForceGui[] = "NORVA_FORCE_GUI";
constexpr char kWebGui[] = "NORVA_WEB_GUI";
constexpr char kWebQuery[] = "NORVA_WEB_TALLOWQUERY";
constexpr char kNoBold[] = "NORVA_NO_BOLD";
constexpr char kRemotePrompt[] = "NORVA_REMOTE_PROMPT";

template <const auto &kVariable>
void unset() {
  unsetenv(kVariable);
}

template <int (*kRead)(), const auto &kVariable>
constexpr SweepRow reader_row(std::string_view function) {
  return cold(
      answer_row<[] { return kRead() == 1; }>(function, "", [] { setenv(kVariable, "1", 1); }));
}

template <const auto &kVariable>
Answer answer_of_writer(int result, const char *expected) {
  if (result != 0) return Answer::kTold;
  const char *value = getenv(kVariable);
  return right_if(value != nullptr && strcmp(value, expected) == 0);
}

template <int (*kWrite)(int), const auto &kVariable>
constexpr SweepRow writer_row(std::string_view function) {
  return answer_row<[] { return answer_of_writer<kVariable>(kWrite(1), "1"); }>(
      function, "", warm_messages, unset<kVariable>);
}

sockaddr_in prompt_address() {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(7070);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

constexpr SweepRow kRows[] = {
    cold(answer_row<[] {
      return is_folder(ks_product_dir(state.folder, "etc"), "/srv/product/etc");
    }>("ks_product_dir", "", set_home)),
    cold(answer_row<[] {
      return is_folder(ks_product_tool_dir(state.folder, "tool"), "/srv/product/bin/tool");
    }>("ks_product_tool_dir", "", set_home)),
    cold(answer_row<[] {
      return is_folder(ks_product_tool_dir_quoted(state.folder, "tool"), "/srv/product/bin/tool");
    }>("ks_product_tool_dir_quoted", "", set_home)),
    reader_row<ks_force_gui, kForceGui>("ks_force_gui"),
    reader_row<ks_web_gui, kWebGui>("ks_web_gui"),
    reader_row<ks_web_tallowquery, kWebQuery>("ks_web_tallowquery"),
    reader_row<ks_no_bold, kNoBold>("ks_no_bold"),
    writer_row<ks_set_force_gui, kForceGui>("ks_set_force_gui"),
    writer_row<ks_set_web_gui, kWebGui>("ks_set_web_gui"),
    writer_row<ks_set_web_tallowquery, kWebQuery>("ks_set_web_tallowquery"),
    cold(answer_row<[] {
      sockaddr_in address;
      return ks_remote_prompt(&address) == 0 && address.sin_port == htons(7070) &&
             address.sin_addr.s_addr == htonl(INADDR_LOOPBACK);
    }>("ks_remote_prompt", "", [] { setenv(kRemotePrompt, "7070,127.0.0.1", 1); })),
    answer_row<[] {
      return answer_of_writer<kRemotePrompt>(ks_set_remote_prompt(prompt_address()),
                                             "7070,127.0.0.1");
    }>("ks_set_remote_prompt", "", warm_messages, unset<kRemotePrompt>),
};

constexpr std::string_view kNothing = "does nothing";
constexpr std::string_view kFlag = "one flag";

constexpr SweepExemption kExemptions[] = {
    {"ks_connected", kNothing},
    {"ks_set_connected", kNothing},
    {"ks_disable_long_path", kNothing},
    {"ks_enable_rmview_full_cr_check", kFlag},
    {"ks_is_enabled_rmview_full_cr_check", kFlag},
};

}  // namespace

const SweepModule ks_test::kSweepKsProduct = {kRows, kExemptions};
