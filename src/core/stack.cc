// Stacks of data words, on top of a list.
#include "stack.h"

#include "list.h"
#include "pfm.h"

struct stack {
  stg_area_t area;
  list_t *list;         // an element for each push ever made
  list_element_t *top;  // element of the push that is on top now, NULL when the stack is empty
  size_t default_length;
};

namespace {

// The data word of a list element; freed by the pop, while the element stays.
struct StackNode {
  list_element_t *previous_top;
  size_t length;
  void *data;
};

}  // namespace

struct stack *stack_create(stg_area_t area, size_t default_length) {
  pfm_inhibit();
  struct stack *made = static_cast<struct stack *>(stg_alloc(area, sizeof(struct stack)));
  if (made != nullptr) *made = {area, list_create(area, 0), nullptr, default_length};
  pfm_enable();
  return made;
}

int stack_push(struct stack *stack, void *data) {
  return stack_varlen_push(stack, data, stack->default_length);
}

// A push is one stretch for signals: a fault on the way would leave a node that no pop can reach.
int stack_varlen_push(struct stack *stack, void *data, size_t length) {
  pfm_inhibit();
  StackNode *node = static_cast<StackNode *>(stg_alloc(stack->area, sizeof(StackNode)));
  if (node != nullptr) {
    *node = {stack->top, length, data};
    stack->top = list_append(stack->list, node);
  }
  pfm_enable();
  return node == nullptr;
}

int stack_pop(struct stack *stack, void **data, size_t *length) {
  *data = nullptr;
  *length = 0;
  if (stack->top == nullptr) return 1;
  pfm_inhibit();
  StackNode *node = static_cast<StackNode *>(list_get_data(stack->list, stack->top));
  *data = node->data;
  *length = node->length;
  stack->top = node->previous_top;
  if (stack->area == STG_AREA_HEAP) stg_free(node);
  pfm_enable();
  return 0;
}

// Users count on the number of pushes: pops leave their elements on the list.
uint32_t stack_depth(const struct stack *stack) { return list_length(stack->list); }

void stack_destroy(struct stack **stack) {
  pfm_inhibit();
  list_destroy((*stack)->list);
  if ((*stack)->area == STG_AREA_HEAP) stg_free(*stack);
  *stack = nullptr;
  pfm_enable();
}
