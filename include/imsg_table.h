/* imsg_table.h: the message table, and the tables of this library.
 *
 * A message is named by a table and an index into it. The table holds the English text of each
 * message and the number of the same text in a message catalog, so the user's language comes from
 * the catalog, and the English stays when there is none. Numbers in a catalog never change once
 * shipped, so they are kept apart from the indexes.
 *
 * Nobody writes a table by hand: tools/norvaks-messages makes it from a `.msg` file.
 */
#ifndef KS_IMSG_TABLE_H
#define KS_IMSG_TABLE_H

#include <stdint.h>

#include "ks_api.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct imsg_table {
  const char *library;      /* name of the catalog, such as "ks_lib" */
  const char *subsys;       /* name shown in messages and used for tracing, such as "ks/stg" */
  uint16_t set;             /* set number in the catalog */
  uint16_t count;           /* number of messages */
  const char *const *texts; /* English printf formats, by index */
  const uint16_t *catnums;  /* number in the catalog, by index */
} imsg_table_t;

/* Each name stands for its one record: `_ks_ks_msg_table` is the pointer that a call takes.
 * They are constant and live as long as the process. */
extern KS_API const imsg_table_t _clp_ks_msg_table[1];
extern KS_API const imsg_table_t _credutl_ks_msg_table[1];
extern KS_API const imsg_table_t _date_ks_msg_table[1];
extern KS_API const imsg_table_t _imsg_ks_msg_table[1];
extern KS_API const imsg_table_t _ks_ks_msg_table[1]; /* general messages, shared by all modules */
extern KS_API const imsg_table_t _list_ks_msg_table[1];
extern KS_API const imsg_table_t _pfm_ks_msg_table[1];
extern KS_API const imsg_table_t _rt_ks_msg_table[1];
extern KS_API const imsg_table_t _rt_proc_ks_msg_table[1];
extern KS_API const imsg_table_t _server_id_ks_msg_table[1];
extern KS_API const imsg_table_t _stg_ks_msg_table[1];
extern KS_API const imsg_table_t _strutl_ks_msg_table[1];
extern KS_API const imsg_table_t _sysutl_ks_msg_table[1];

#ifdef __cplusplus
}
#endif

#endif
