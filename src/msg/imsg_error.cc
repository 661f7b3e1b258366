// Texts for errno and h_errno values.
#include <netdb.h>

#include <cstring>

#include "core/ks_assert.h"
#include "core/ks_frame.h"
#include "imsg.h"
#include "imsg_internal.h"
#include "imsg_msg.h"
#include "strutl.h"

using namespace ks;

namespace {

char error_number_message[256];

const char *number_text(long number) {
  const size_t count = static_cast<size_t>(
      strutl_snprintf(error_number_message, sizeof error_number_message, "%ld", number));
  KS_ASSERT(count < sizeof error_number_message);
  return error_number_message;
}

// Index of the text for a resolver's code, or -1.
int host_message(int h_errno_value) {
  switch (h_errno_value) {
    case HOST_NOT_FOUND:
      return IMSG_MSG_HOST_NOT_FOUND;
    case NO_DATA:
      return IMSG_MSG_HOST_NO_DATA;
    case NO_RECOVERY:
      return IMSG_MSG_HOST_NO_RECOVERY;
    case TRY_AGAIN:
      return IMSG_MSG_HOST_TRY_AGAIN;
    default:
      return -1;
  }
}

}  // namespace

const char *imsg_strerror(int errnum) {
  need_imsg();
  const char *text = nullptr;
  if (errnum > 0) signals_held([&] { text = strerror(errnum); });
  return text != nullptr ? text : number_text(errnum);
}

const char *imsg_strerror_gethost(int h_errno_value) {
  const int index = host_message(h_errno_value);
  if (index == -1) return imsg_strerror(h_errno_value);
  return cat_extractmsg(_imsg_ks_msg_table, index);
}
