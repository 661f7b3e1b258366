/* ks_product.h: where the product is installed, and the modes that a parent process asked for.
 *
 * A mode travels from a process to the tools that it starts in an environment variable. A reader
 * looks at its variable once and keeps the answer, so a writer is for the children: it changes what
 * they see and not what this process has read.
 *
 * A mode is on when its variable holds a number other than 0 or begins with no digit, and off when
 * the variable is missing or empty. Texts in buffers are cut where the buffer ends. Nothing here
 * raises by itself.
 */
#ifndef KS_PRODUCT_H
#define KS_PRODUCT_H

#include <netinet/in.h>

#include "ks_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Bytes of the buffers that the functions for folders fill. */
enum { KS_PRODUCT_DIR_SIZE = 1024 };

/* ks_product_dir writes the folder where the product is installed into `buf`, of at least 1024
 * bytes, followed by "/" and `sub` unless that is NULL. The folder is the value of TALLOWBAYHOME, or
 * else of NORVAHOME, also an empty one, or else "/opt/quillons/tallowbay", as the first call finds
 * it; when it cannot be kept a warning says so. Result: `buf`. */
KS_API char *ks_product_dir(char *buf, const char *sub);

/* ks_product_tool_dir does the same for the folder of the tools, "bin" in the product's, and a tool;
 * ks_product_tool_dir_quoted is the same function: no quotes are added. */
KS_API char *ks_product_tool_dir(char *buf, const char *tool);
KS_API char *ks_product_tool_dir_quoted(char *buf, const char *tool);

/* Whether a mode is on, 1 or 0: prompts take the graphical way (NORVA_FORCE_GUI), a web interface
 * runs the tools (NORVA_WEB_GUI), it asks the user by the prompt tool (NORVA_WEB_TALLOWQUERY). */
KS_API int ks_force_gui(void);
KS_API int ks_web_gui(void);
KS_API int ks_web_tallowquery(void);

/* Whether texts are written without styles, by NORVA_NO_BOLD: 1 or 0. The empty value, too, turns
 * this one on. */
KS_API int ks_no_bold(void);

/* Set a mode for the processes that this one starts: on, or off with a flag of 0.
 * Result: 0, or 1 with errno when the environment could not be changed. */
KS_API int ks_set_force_gui(int flag);
KS_API int ks_set_web_gui(int flag);
KS_API int ks_set_web_tallowquery(int flag);

/* ks_remote_prompt reads the address of the server that asks the user, "<port>,<address>" in
 * NORVA_REMOTE_PROMPT, into `*addr`. Result: 0; 2 when there is none, with `*addr` left alone. */
KS_API int ks_remote_prompt(struct sockaddr_in *addr);

/* ks_set_remote_prompt gives the address to the processes that this one starts; with port 0 they
 * have none. Result: 0, or 1 with errno when the environment could not be changed. */
KS_API int ks_set_remote_prompt(struct sockaddr_in addr);

/* ks_connected tells whether the product works with its servers: always 1. The two others do
 * nothing; programs of all kinds of the product call them. */
KS_API int ks_connected(void);
KS_API void ks_set_connected(void);
KS_API void ks_disable_long_path(void);

/* ks_enable_rmview_full_cr_check turns the full check on for the rest of the process;
 * ks_is_enabled_rmview_full_cr_check tells: 1 or 0. */
KS_API void ks_enable_rmview_full_cr_check(void);
KS_API int ks_is_enabled_rmview_full_cr_check(void);

#ifdef __cplusplus
}
#endif

#endif
