// The modes that processes of the product hand on in the environment.
#include <arpa/inet.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/ks_frame.h"
#include "ks_product.h"
#include "strutl.h"

using namespace ks;

namespace {

// A variable and what its reader has found there.
struct Mode {
  const char *name;
  int when_empty;
  bool fetched;
  int value;
};
constinit Mode force_gui = {"NORVA_FORCE_GUI", 0, false, 0};
constinit Mode web_gui = {"NORVA_WEB_GUI", 0, false, 0};
constinit Mode web_tallowquery = {"NORVA_WEB_TALLOWQUERY", 0, false, 0};
constinit Mode no_bold = {"NORVA_NO_BOLD", 1, false, 0};  // users set it empty to turn styles off

constexpr char kRemotePrompt[] = "NORVA_REMOTE_PROMPT";
struct {
  bool fetched;
  sockaddr_in address;  // port 0: there is none
} remote_prompt;

bool full_cr_check = false;

int mode_of(const char *text, int when_empty) {
  if (text == nullptr) return 0;
  if (*text == '\0') return when_empty;
  if (!isdigit(static_cast<unsigned char>(*text))) return 1;
  return strtol(text, nullptr, 10) != 0;
}

int read_mode(Mode &mode) {
  if (!mode.fetched) {
    signals_held([&] {
      mode.value = mode_of(getenv(mode.name), mode.when_empty);
      mode.fetched = true;
    });
  }
  return mode.value;
}

// The environment keeps the pointer to `setting`, "<name>=<value>". Result as the writers'.
int put_setting(char *setting) { return putenv(setting) == 0 ? 0 : 1; }

// Held as a whole: from the second call on the environment has the buffer already, and must not be
// left with a part of a setting.
template <Mode &kMode>
int write_mode(int flag) {
  static char setting[40];
  int result = 1;
  signals_held([&] {
    strutl_concat(setting, sizeof setting, 3, kMode.name, "=", flag != 0 ? "1" : "");
    result = put_setting(setting);
  });
  return result;
}

// The address may be of any length, so it is read where it stands.
sockaddr_in parse_remote_prompt(const char *text) {
  sockaddr_in address = {};
  unsigned short port;
  int address_at = 0;
  if (sscanf(text, "%hu, %n", &port, &address_at) != 1 || address_at == 0) return address;
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = inet_addr(text + address_at);
  if (address.sin_addr.s_addr != INADDR_NONE) address.sin_port = htons(port);
  return address;
}

// Held: sscanf works on a stream of its own, and the environment may be about to change.
void fetch_remote_prompt() {
  signals_held([] {
    const char *text = getenv(kRemotePrompt);
    if (text != nullptr) remote_prompt.address = parse_remote_prompt(text);
    remote_prompt.fetched = true;
  });
}

}  // namespace

int ks_force_gui() { return read_mode(force_gui); }
int ks_web_gui() { return read_mode(web_gui); }
int ks_web_tallowquery() { return read_mode(web_tallowquery); }
int ks_no_bold() { return read_mode(no_bold); }

int ks_set_force_gui(int flag) { return write_mode<force_gui>(flag); }
int ks_set_web_gui(int flag) { return write_mode<web_gui>(flag); }
int ks_set_web_tallowquery(int flag) { return write_mode<web_tallowquery>(flag); }

int ks_remote_prompt(struct sockaddr_in *addr) {
  if (!remote_prompt.fetched) fetch_remote_prompt();
  if (remote_prompt.address.sin_port == 0) return 2;
  *addr = remote_prompt.address;
  return 0;
}

int ks_set_remote_prompt(struct sockaddr_in addr) {
  static char setting[sizeof kRemotePrompt + sizeof "=65535,255.255.255.255"];
  char value[INET_ADDRSTRLEN + 8] = "";
  if (addr.sin_port != 0) {
    char host[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &addr.sin_addr, host, sizeof host);
    strutl_snprintf(value, sizeof value, "%hu,%s", ntohs(addr.sin_port), host);
  }
  int result = 1;
  signals_held([&] {
    strutl_concat(setting, sizeof setting, 3, kRemotePrompt, "=", value);
    result = put_setting(setting);
  });
  return result;
}

int ks_connected() { return 1; }
void ks_set_connected() {}
void ks_disable_long_path() {}

void ks_enable_rmview_full_cr_check() { full_cr_check = true; }
int ks_is_enabled_rmview_full_cr_check() { return full_cr_check; }
