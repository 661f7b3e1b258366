// The same in C++20.
#include <norvaks/imsg.h>
#include <norvaks/libnorvaks.h>
#include <norvaks/pfm.h>

#include "hello_msg.h"

int main(int, char **argv) {
  imsg_set_app_name(argv[0]);
  imsg_print(IMSG_TYPE_OK, hello_msg_table, HELLO_MSG_GREETING, "world");
  libnorvaks_print_verid();
  pfm_exit(0);
}
