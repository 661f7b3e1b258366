// Bytes that tell this machine from others.
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <span>

#include "core/ks_frame.h"
#include "imsg.h"
#include "ks_msg.h"
#include "msg/ks_print.h"
#include "proc/sysutl_internal.h"
#include "sysutl.h"

using namespace ks;

namespace {

constexpr size_t kListSize = 1024;  // bytes of interface records that are looked at

// An identity and the result that goes with it, worked out once.
struct Identity {
  bool known;
  int result;
  std::array<unsigned char, SYSUTL_HOSTID_SIZE> bytes;

  bool is_zero() const {
    return std::all_of(bytes.begin(), bytes.end(), [](unsigned char byte) { return byte == 0; });
  }

  int copy_to(unsigned char *id) const {
    std::copy(bytes.begin(), bytes.end(), id);
    return result;
  }
};

struct State {
  uint32_t host_id;  // 0: not known yet
  Identity ethernet;
  Identity stable;
};
constinit State state = {};

bool first_hardware_address(int fd, std::span<const ifreq> interfaces, ifreq &card) {
  for (const ifreq &interface : interfaces) {
    if (strncmp(interface.ifr_name, "lo", IFNAMSIZ) == 0) continue;
    card = interface;
    if (ioctl(fd, SIOCGIFHWADDR, &card) == 0) return true;
  }
  return false;
}

// Asks the socket for the machine's interfaces. 0, or -1 with errno.
int find_card(int fd, ifreq &card) {
  std::array<ifreq, kListSize / sizeof(ifreq)> interfaces;
  ifconf list = {};
  list.ifc_len = sizeof interfaces;
  list.ifc_req = interfaces.data();
  if (ioctl(fd, SIOCGIFCONF, &list) != 0) return -1;
  errno = ENODEV;  // stands unless a card fails for a reason of its own
  const size_t count = static_cast<size_t>(list.ifc_len) / sizeof(ifreq);
  return first_hardware_address(fd, std::span(interfaces).first(count), card) ? 0 : -1;
}

int ask_card(ifreq &card) {
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  if (fd < 0) return -1;
  const int result = find_card(fd, card);
  const int error = errno;
  close(fd);
  errno = error;
  return result;
}

int find_ethernet_address(Identity &identity) {
  ifreq card = {};
  int result = -1;
  int error = 0;
  signals_held([&] {
    result = ask_card(card);
    error = errno;
  });
  if (result != 0) {
    print<KS_MSG_OPERATION_FAILED>(IMSG_TYPE_ERROR, "sysutl_my_ieee_hostid", imsg_strerror(error));
    return 1;
  }
  memcpy(identity.bytes.data(), card.ifr_hwaddr.sa_data, identity.bytes.size());
  if (!identity.is_zero()) return 0;
  sysutl_trace("sysutl_my_ieee_hostid: MAC addr ioctl succeeded but returned 0.\n");
  return 1;
}

// The characters are signed: names with bytes above 127 have always hashed so.
uint16_t hash_of(const char *name) {
  uint16_t hash = 0;
  for (; *name != '\0'; ++name) {
    const int character = static_cast<signed char>(*name);
    hash = static_cast<uint16_t>(hash + ((hash << 7) ^ character));
  }
  return hash;
}

int make_stable_id(Identity &identity) {
  const uint32_t number = sysutl_myhostid();
  const uint32_t hash = hash_of(sysutl_myhostname());
  for (unsigned i = 0; i < 4; ++i) {
    identity.bytes[i] = static_cast<unsigned char>(number >> (8 * i));
  }
  identity.bytes[4] = static_cast<unsigned char>(hash);
  identity.bytes[5] = static_cast<unsigned char>(hash >> 8);
  if (identity.is_zero()) {
    sysutl_trace("sysutl_my_stable_hostid: hostid is all zeros.\n");
    return 1;
  }
  // Sets it apart from every Ethernet address that is assigned worldwide.
  identity.bytes[0] |= 0x80;
  return 0;
}

int answer_once(Identity &identity, int (*work_out)(Identity &), unsigned char *id) {
  if (!identity.known) {
    Identity found = {};
    found.result = work_out(found);
    found.known = true;
    signals_held([&] { identity = found; });
  }
  return identity.copy_to(id);
}

// libc looks the host's address up where no number is kept; 0 stands for a failure, too.
uint32_t ask_host_id() {
  uint32_t id;
  do {
    errno = 0;
    id = static_cast<uint32_t>(gethostid());
  } while (id == 0 && errno == EINTR);
  return id;
}

}  // namespace

uint32_t sysutl_myhostid() {
  if (state.host_id == 0) {
    signals_held([] { state.host_id = ask_host_id(); });
  }
  return state.host_id;
}

int sysutl_my_ieee_hostid(unsigned char *id) {
  return answer_once(state.ethernet, find_ethernet_address, id);
}

int sysutl_my_stable_hostid(unsigned char *id) {
  return answer_once(state.stable, make_stable_id, id);
}
