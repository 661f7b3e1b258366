/* Arms cleanup records on a stack that holds all kinds of things, for a memory checker to watch. */
#include <norvaks/pfm.h>

static int raised;

static int land_in_a_fresh_record(void) {
  pfm_cleanup_rec_t rec;
  int status = PFM_CLEANUP_START(&rec, 0);
  if (status != 0) {
    pfm_enable();
    return status;
  }
  if (raised != 0) pfm_raise(raised);
  pfm_cleanup_rls(&rec);
  return 0;
}

int main(void) {
  for (raised = 0; raised < 3; ++raised) {
    if (land_in_a_fresh_record() != raised) return 1;
  }
  return 0;
}
