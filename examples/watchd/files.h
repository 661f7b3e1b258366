/* The files of the watched folders: which have changed, are quiet, wait for their turn, or run. */
#ifndef FILES_H
#define FILES_H

#include <sys/time.h>

#include <norvaks/llist.h>

/* Runs of `script` begin when a file has been quiet for `quiet`, at most `jobs` at a time. */
void files_start(const char *script, const struct timeval *quiet, unsigned jobs);
void files_end(void);

/* A folder keeps a list of its files, at first all zero. The calls below take it, and the path of a
 * file that may be new there.
 * file_known: the file is known as it is now. No command runs for that.
 * file_looked_at: as file_changed, if the file is not as it was when it was known or last run. */
void file_known(llist_d *folder, const char *path);
void file_changed(llist_d *folder, const char *path);
void file_looked_at(llist_d *folder, const char *path);

void file_removed(const char *path);

/* Forgets the idle files of a folder that are not there any more. */
void files_forget_missing(llist_d *folder);
void files_forget_all(llist_d *folder);

/* No command is started from now on, and the loop is left when the last one that runs has ended. */
void files_stop(void);

unsigned files_waiting(void); /* until they are quiet */
unsigned files_queued(void);  /* until fewer commands run */

#endif
