// Lists of strings, printed.
#include "imsg.h"
#include "ks_msg.h"
#include "list.h"
#include "msg/ks_print.h"
#include "strutl.h"

namespace {

void print_list(list_t *list, int type) {
  if (list == nullptr) return;
  void *string;
  for (list_element_t *at = nullptr; (at = list_next(list, at, &string)) != nullptr;) {
    ks::print<KS_MSG_LINE>(type, static_cast<const char *>(string));
  }
  ks::print<KS_MSG_NEWLINE>(type);
}

}  // namespace

void strutl_list_print(struct list *list) { print_list(list, IMSG_TYPE_OK_CONT); }

void strutl_list_trace_print(struct list *list) { print_list(list, IMSG_TYPE_TRACE_CONT); }
