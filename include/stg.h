/* stg.h: storage: heap blocks, and areas that are released whole.
 *
 * An area holds data of one lifetime: parse trees, tables, decoded arguments. Allocating in it moves
 * an offset in a chunk; nothing goes back singly, and deleting the area releases everything. The
 * heap functions wrap the system's allocator for single blocks.
 *
 * Nothing here raises. When storage is exhausted, an error is printed, errno is ENOMEM and the
 * result is NULL. With TRACE_VERBOSITY=1 and TRACE_SUBSYS=ks/stg storage is checked: heap blocks
 * bear guard bytes, and the free space of areas must keep its fill; damage is reported as an error
 * and the program goes on. The settings must not change while blocks are outstanding. Under
 * AddressSanitizer and valgrind areas tell the tool what is allocated.
 *
 * Creating and deleting areas is not for signal routines; allocating is, also in the area in which the
 * interrupted flow allocates. An area that a fault leaves in any of these calls can be used, freed or
 * deleted like any other. A block or an area that a call returns is lost to a fault that comes before
 * the caller has stored it: hold signals over both. A wrong handle ends in an assertion.
 */
#ifndef KS_STG_H
#define KS_STG_H

#include <stddef.h>
#include <stdint.h>

#include "ks_api.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The handle of an area. Two values are reserved: no area, and the heap, with which stg_alloc is
 * stg_malloc. */
typedef struct stg_area *stg_area_t;
#define STG_AREA_NULL ((stg_area_t)0)
#define STG_AREA_HEAP ((stg_area_t)1)

/* stg_create_area makes an area whose first chunk is to have `size` bytes; a chunk has at most 102400
 * bytes unless a single request needs more. The first allocation makes the first chunk.
 * Result: the handle, to be given to stg_delete_area, or STG_AREA_NULL. */
KS_API stg_area_t stg_create_area(uint32_t size);

/* stg_alloc hands out `size` bytes of `area`, rounded up to a multiple of 8; with STG_AREA_HEAP it is
 * stg_malloc(size).
 * Result: storage aligned to 8 within its chunk, or NULL. Not cleared, unless stg_set_zero was
 *   called before. Size 0 gives the current free position and does not advance it.
 * Lifetime: until stg_free_area or stg_delete_area; a heap block until stg_free. */
KS_API void *stg_alloc(stg_area_t area, size_t size);

/* stg_area_strdup copies a text into the area. Result: the copy, or NULL, also for a NULL text. */
KS_API char *stg_area_strdup(stg_area_t area, const char *text);

/* stg_set_incr makes later chunks `size` bytes; with a growth factor only the second.
 * stg_set_growth makes each later chunk `factor` times the last one; a factor that is not above 1.0
 * changes nothing. stg_set_zero has chunks made or cleared from now on filled with zero bytes: to be
 * called right after the creation. */
KS_API void stg_set_incr(stg_area_t area, uint32_t size);
KS_API void stg_set_growth(stg_area_t area, double factor);
KS_API void stg_set_zero(stg_area_t area);

/* stg_free_area releases all that was allocated; the area can be used again. With `keep_first` not 0
 * its first chunk stays for that. */
KS_API void stg_free_area(stg_area_t area, int keep_first);

/* stg_delete_area releases the area with all that was allocated and sets `*area` to STG_AREA_NULL. */
KS_API void stg_delete_area(stg_area_t *area);

/* stg_dump_area prints an area and its chunks, newest first, as plain output; "avail" stands over the
 * bytes in use and "prev" over the next older chunk. stg_dump prints all areas, oldest first. */
KS_API void stg_dump_area(stg_area_t area);
KS_API void stg_dump(void);

/* stg_malloc, stg_realloc and stg_free are the system's, with a size of 0 taken as 1; stg_realloc of
 * NULL allocates, stg_free of NULL does nothing. A block whose reallocation failed stays as it was.
 * Result: the block, aligned as malloc's (to 8 while storage is checked), or NULL. */
KS_API void *stg_malloc(size_t size);
KS_API void *stg_realloc(void *block, size_t size);
KS_API void stg_free(void *block);

/* stg_strdup copies a text, which is not NULL, into a heap block. Result: the copy, or NULL. */
KS_API char *stg_strdup(const char *text);

#ifdef __cplusplus
}
#endif

#endif
