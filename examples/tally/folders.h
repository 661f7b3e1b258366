/* The totals of folders: for each folder, of the files that lie in it directly. */
#ifndef FOLDERS_H
#define FOLDERS_H

#include <norvaks/stg.h>

struct counts {
  unsigned long long lines, bytes;
};

void add_counts(struct counts *sum, const struct counts *counts);

/* The totals are kept in `area`, whose storage is cleared, and go by folders_end. */
void folders_start(stg_area_t area);
void folders_end(void);

/* The totals of the folder that a file lies in, for the caller to add to. Result: NULL when there is
 * no storage, which has been printed. To be called with signals held back. */
struct counts *folder_counts(const char *file);

/* Prints the totals sorted by path, the numbers in columns of these widths. Result: 1, or 0 when
 * there is no storage for that, which has been printed. */
int folders_print(int lines_width, int bytes_width);

#endif
