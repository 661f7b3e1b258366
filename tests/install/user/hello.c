/* A C11 program against the installed library, with a message table of its own. */
#include <norvaks/date.h>
#include <norvaks/imsg.h>
#include <norvaks/libnorvaks.h>
#include <norvaks/pfm.h>
#include <norvaks/strutl.h>

#include "hello_msg.h"

int main(int argc, char **argv) {
  char name[16];
  struct timeval now;
  pfm_cleanup_rec_t rec;
  int status = PFM_CLEANUP_START(&rec, 0);
  if (status != 0) return status == 7 ? 0 : 1;
  imsg_set_app_name(argv[0]);
  date_get_timeval(&now);
  if (argc != 1 || now.tv_sec <= 0 || strutl_cpy_buf(name, "world", sizeof name) != 0) return 1;
  imsg_print(IMSG_TYPE_OK, hello_msg_table, HELLO_MSG_GREETING, name);
  libnorvaks_print_verid();
  pfm_raise(7);
}
