/* Linked with a function of its own for each exported name that it does not take from the library:
 * see own_names in checks.sh. What it calls here must not come to one of them. */
#define _GNU_SOURCE 1
#include <norvaks/date.h>
#include <norvaks/fileutl.h>
#include <norvaks/hash.h>
#include <norvaks/imsg.h>
#include <norvaks/pfm.h>
#include <norvaks/rt.h>
#include <norvaks/stack.h>
#include <norvaks/strutl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define EXPECT(condition) ((condition) ? (void)0 : failed(#condition, __LINE__))

static void failed(const char *condition, int line) {
  fprintf(stderr, "line %d: not so: %s\n", line, condition);
  exit(1);
}

static void pushes_and_pops(void) {
  int one = 1, two = 2;
  void *data;
  size_t length;
  struct stack *stack = stack_create(STG_AREA_HEAP, sizeof one);
  EXPECT(stack_push(stack, &one) == 0 && stack_push(stack, &two) == 0);
  EXPECT(stack_pop(stack, &data, &length) == 0 && data == &two && length == sizeof two);
  EXPECT(stack_pop(stack, &data, &length) == 0 && data == &one);
  EXPECT(stack_pop(stack, &data, &length) == 1 && data == NULL);
  stack_destroy(&stack);
}

/* The routines whose addresses are compared, here and in the library. */
static void prints_and_routes(void) {
  imsg_out_fn_t procs[IMSG_TYPE_COUNT];
  void *info;
  EXPECT(imsg_in_gui() == 0);
  imsg_get_redirect_procs(IMSG_TYPE_COUNT, procs, &info);
  EXPECT(procs[IMSG_TYPE_OK] == imsg_append_proc_default);
  EXPECT(procs[IMSG_TYPE_LOG_ONLY] == imsg_append_proc_suppress);
  imsg_redirect_output(imsg_append_proc_suppress, NULL, imsg_append_proc_default, NULL);
  EXPECT(imsg_in_gui() == 1);
  imsg_print(IMSG_TYPE_OK, "%s\n", -1, "suppressed");
  imsg_redirect_output(imsg_append_proc_default, NULL, imsg_append_proc_default, NULL);
  EXPECT(imsg_in_gui() == 0);
  imsg_print(IMSG_TYPE_OK, "%s\n", -1, "printed");
  EXPECT(strcmp(cat_extractmsg(_pfm_ks_msg_table, 0), _pfm_ks_msg_table->texts[0]) == 0);
}

static void reads_and_writes_dates(void) {
  int32_t date;
  EXPECT(date_str_to_time2("24-nov-2006.10:00UTC", DATE_TO_PAST, &date) == 0);
  EXPECT(date == 1164362400);
  EXPECT(strcmp(date_fmt_token_utc(date), "2006-11-24T10:00:00Z") == 0);
}

static void enters_and_finds(void) {
  hash_ht_t table = hash_str_create(10, sizeof(int), 1);
  char text[12];
  const char *key;
  void *data;
  hash_set_dynamic(table, 2);
  for (int i = 0; i < 100; ++i) {
    snprintf(text, sizeof text, "%d", i);
    EXPECT(hash_str_enter(table, text, &key, &data) == 0);
    *(int *)data = i;
  }
  EXPECT(hash_str_lookup(table, "77", &key, &data) == 1 && *(int *)data == 77);
  hash_delete_ht(&table);
}

static int visit(void *argument, const char *path, const char *root, const char *folder,
                 const char *name, const fileutl_stat_t *info, int phase, int depth) {
  (void)path, (void)root, (void)folder, (void)name, (void)info, (void)phase, (void)depth;
  ++*(int *)argument;
  return 0;
}

static void walks(void) {
  int visits = 0;
  const fileutl_walk_callback_t chain = {NULL, FILEUTL_WALK_BEFORE, visit, &visits};
  EXPECT(fileutl_walk_tree("/dev/null", &chain, FILEUTL_WALK_RECURSE) == 0 && visits == 1);
}

static void due(void *done) {
  ++*(int *)done;
  rt_shutdown();
}

static void waits(void) {
  int done = 0;
  rt_async = 0; /* the program's variable and the library's are one */
  EXPECT(rt_sched(due, &done, 0) != NULL);
  rt_run();
  EXPECT(done == 1);
}

static void joins_and_reads_texts(void) {
  char *text = strutl_concat_heap(3, "a", "b", "c");
  long number;
  EXPECT(strcmp(text, "abc") == 0);
  EXPECT(strutl_strtol("2006", 10, &number) == 0 && number == 2006);
  stg_free(text);
}

int main(int argc, char **argv) {
  pfm_cleanup_rec_t rec;
  (void)argc;
  if (PFM_CLEANUP_START(&rec, 0) != 0) return 0; /* where the raise below lands */
  imsg_set_app_name(argv[0]);
  pushes_and_pops();
  prints_and_routes();
  reads_and_writes_dates();
  enters_and_finds();
  walks();
  waits();
  joins_and_reads_texts();
  pfm_raise(7);
}
