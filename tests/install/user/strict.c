/* What a C11 program gets of libc's by the flags alone: nothing is defined here. */
#include <norvaks/fileutl.h>
#include <norvaks/pfm.h>

int main(void) {
  pfm_cleanup_rec_t rec;
  fileutl_stat_t info;
  const int status = PFM_CLEANUP_START(&rec, 0);
  if (status != 0) return status == 7 ? 0 : 1;
  if (fileutl_stat("/dev/null", 1, &info) != 0 || !S_ISCHR(info.st_mode)) return 1;
  pfm_raise(7);
}
