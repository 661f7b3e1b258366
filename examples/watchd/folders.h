/* The folders that are watched, by one descriptor for all of them. */
#ifndef FOLDERS_H
#define FOLDERS_H

/* Watches folders, whose names stay the caller's; the files in them are known from then on.
 * Result: 1, or 0 when one of them cannot be watched, which has been printed. */
int folders_start(char **paths, unsigned count);

/* Watches again, under their names, all folders that are there, and runs what has changed in them
 * unnoticed. */
void folders_read_again(void);

/* Stops watching. folders_end releases all that is known, when no command runs any more. */
void folders_stop(void);
void folders_end(void);

unsigned folders_named(void);
unsigned folders_watched(void);

#endif
