// The prefix of each message type.
#include <cstdlib>
#include <cstring>
#include <utility>

#include "core/ks_frame.h"
#include "imsg.h"
#include "imsg_internal.h"
#include "imsg_msg.h"
#include "ks_print.h"
#include "strutl.h"

namespace ks {
bool imsg_output_ok_flag = false;
}  // namespace ks

using namespace ks;

namespace {

int imsg_suppress_prefix_flag = 0;
int imsg_output_subsys_flag = 0;  // kept for its callers; no printed line heeds it

enum Word { WORD_OK, WORD_WARNING, WORD_ERROR, WORD_SYSTEM, WORDS };

// In the user's language, read once. Fewer than all only before the first prefix.
const char *prefix_words[WORDS];

char prefix_format[128];

// A word becomes part of a printf format, so a translation with a percent sign is not taken.
void read_word(Word word, imsg_msg number) {
  if (prefix_words[word] != nullptr) return;
  const char *builtin = _imsg_ks_msg_table->texts[number];
  const char *text = cat_extractmsg(_imsg_ks_msg_table, number);
  if (strchr(text, '%') != nullptr) text = builtin;
  signals_held([&] {
    const char *copy = strdup(text);
    prefix_words[word] = copy != nullptr ? copy : builtin;
  });
}

void read_words() {
  if (prefix_words[WORD_SYSTEM] != nullptr) return;
  read_word(WORD_OK, IMSG_MSG_PREFIX_OK);
  read_word(WORD_WARNING, IMSG_MSG_PREFIX_WARNING);
  read_word(WORD_ERROR, IMSG_MSG_PREFIX_ERROR);
  read_word(WORD_SYSTEM, IMSG_MSG_PREFIX_SYSTEM);
}

const char *name_format(int type, bool with_subsys) {
  switch (type) {
    case IMSG_TYPE_OK:
    case IMSG_TYPE_BOX:
      if (!imsg_output_ok_flag) return "";
      [[fallthrough]];
    case IMSG_TYPE_WARNING:
    case IMSG_TYPE_ERROR:
      return with_subsys ? "%s/%s: " : "%s: ";
    case IMSG_TYPE_TRACE:
      return with_subsys ? ">>> %s (%s/%s): " : ">>> %s (%s): ";
    default:
      return "";
  }
}

const char *type_word(int type) {
  switch (type) {
    case IMSG_TYPE_OK:
      return imsg_output_ok_flag ? prefix_words[WORD_OK] : "";
    case IMSG_TYPE_WARNING:
      return prefix_words[WORD_WARNING];
    case IMSG_TYPE_ERROR:
      return prefix_words[WORD_ERROR];
    default:
      return "";
  }
}

}  // namespace

const char *imsg_prefix_format(int type, int with_subsys) {
  need_imsg();
  read_words();
  prefix_format[0] = '\0';
  if (imsg_suppress_prefix_flag != 0) return prefix_format;
  if (type < 0 || type > kLastMessageType) {
    print<IMSG_MSG_UNKNOWN_TYPE>(IMSG_TYPE_ERROR, type, __FILE__, __LINE__);
    return prefix_words[WORD_SYSTEM];
  }
  const char *names = name_format(type, with_subsys != 0);
  const size_t length = strlen(names);
  memcpy(prefix_format, names, length);
  strutl_cpy_buf(prefix_format + length, type_word(type), sizeof prefix_format - length);
  return prefix_format;
}

int imsg_suppress_prefix(int flag) { return std::exchange(imsg_suppress_prefix_flag, flag); }

int imsg_output_subsys(int flag) { return std::exchange(imsg_output_subsys_flag, flag); }
