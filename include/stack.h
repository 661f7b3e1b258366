/* stack.h: a stack of data words, each with the length of what it leads to.
 *
 * The stack keeps words and lengths, never the data, which stay the caller's. It lives in a storage
 * area or on the heap. Inside is a list (list.h) with one element for every push that the stack has
 * ever had, and pops don't shorten it: stack_depth counts pushes, and a stack that is in use for
 * long grows until it is destroyed.
 *
 * Lack of storage is told by the result, but for the share of the inner list, where it is fatal as
 * with all lists. Changes are made with signals held back; the fault of a signal that arrived
 * meanwhile may leave the call when its work is done.
 *
 * The type has no short name: stack_t is one of the system's.
 */
#ifndef KS_STACK_H
#define KS_STACK_H

#include <stddef.h>
#include <stdint.h>

#include "ks_api.h"
#include "stg.h"

#ifdef __cplusplus
extern "C" {
#endif

struct stack;

/* stack_create makes an empty stack in `area`. stack_push takes what it is given to have
 * `default_length` bytes. Result: the stack, or NULL after an error message. It goes with its area,
 * or with STG_AREA_HEAP by stack_destroy. */
KS_API struct stack *stack_create(stg_area_t area, size_t default_length);

/* stack_push puts `data` on top with the default length, stack_varlen_push with a length of its
 * own. Result: 0, or 1 after an error message, with the stack as it was. */
KS_API int stack_push(struct stack *stack, void *data);
KS_API int stack_varlen_push(struct stack *stack, void *data, size_t length);

/* stack_pop takes the top off and stores its data word and its length.
 * Result: 0; 1 when the stack is empty, and NULL and 0 are stored. */
KS_API int stack_pop(struct stack *stack, void **data, size_t *length);

/* stack_depth returns the number of pushes since the creation, which pops do not lower: not the
 * number of words that are left. */
KS_API uint32_t stack_depth(const struct stack *stack);

/* stack_destroy frees what is on the heap and sets `*stack` to NULL. Words that are still on the
 * stack must have been popped before: with STG_AREA_HEAP the storage of each one left is lost. */
KS_API void stack_destroy(struct stack **stack);

#ifdef __cplusplus
}
#endif

#endif
