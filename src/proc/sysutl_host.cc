// What this machine and others are called.
#include <arpa/inet.h>
#include <rpcsvc/ypclnt.h>
#include <sys/socket.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <array>
#include <cstring>

#include "core/ks_frame.h"
#include "proc/sysutl_internal.h"
#include "stg.h"
#include "strutl.h"
#include "sysutl.h"

using namespace ks;

namespace {

constexpr size_t kNameSize = 1024;
constexpr const char *kUnknownHost = "UnknownHost";

constinit const char *my_host_name = nullptr;  // kept as long as the process lives

// The record for an address with dots, and what it points to.
struct DottedHost {
  hostent record;
  std::array<char, kNameSize> name;
  in_addr_t address;
  char *aliases[1];
  char *addresses[2];
};
constinit DottedHost dotted_host = {};

const char *ask_host_name() {
  std::array<char, kNameSize> name;
  if (gethostname(name.data(), name.size()) != 0) return kUnknownHost;
  name.back() = '\0';
  if (name[0] == '\0') return kUnknownHost;
  return stg_strdup(name.data());
}

hostent *look_up_host(const char *name) {
  hostent *host = nullptr;
  signals_held([&] { host = ask_for_entry([&] { return gethostbyname(name); }); });
  return host;
}

hostent *fill_dotted_host(const char *name, in_addr_t address) {
  DottedHost &host = dotted_host;
  strutl_cpy_buf(host.name.data(), name, host.name.size());
  host.address = address;
  host.addresses[0] = reinterpret_cast<char *>(&host.address);
  host.record = {host.name.data(), host.aliases, AF_INET, sizeof host.address, host.addresses};
  return &host.record;
}

}  // namespace

const char *sysutl_myhostname() {
  if (my_host_name == nullptr) {
    signals_held([] { my_host_name = ask_host_name(); });
  }
  return my_host_name != nullptr ? my_host_name : kUnknownHost;
}

char **sysutl_hostname_aliases(const char *name) {
  const hostent *host = look_up_host(name);
  return host != nullptr ? host->h_aliases : nullptr;
}

hostent *sysutl_host_addr(const char *name) {
  const in_addr_t address = inet_addr(name);
  if (address == INADDR_NONE) return look_up_host(name);
  hostent *host = nullptr;
  signals_held([&] { host = fill_dotted_host(name, address); });
  return host;
}

int sysutl_get_host_domain_name(char **name) {
  int result = YPERR_SUCCESS;
  signals_held([&] { result = yp_get_default_domain(name); });
  return result;
}

void sysutl_platform_description(char *buffer) {
  utsname system;
  static_assert(sizeof system.sysname + sizeof system.release + sizeof system.machine + 3 <=
                SYSUTL_PLATFORM_SIZE);
  if (uname(&system) != 0) {
    strutl_cpy_buf(buffer, "i386", SYSUTL_PLATFORM_SIZE);
    return;
  }
  strutl_snprintf(buffer, SYSUTL_PLATFORM_SIZE, "%s %s (%s)", system.sysname, system.release,
                  system.machine);
}
