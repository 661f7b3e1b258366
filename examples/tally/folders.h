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

/* Adds the counts of a file to its folder. Result: 1, or 0 when there was no storage. */
int folders_add(const char *file, const struct counts *counts);

/* Prints the totals sorted by path, the numbers in columns of these widths. */
void folders_print(int lines_width, int bytes_width);

#endif
