// The hash of a text that is not for tables.
#include <bit>

#include "strutl.h"

uint32_t strutl_str_to_hash32(uint32_t seed, const char *string) {
  uint32_t hash = seed;
  for (; *string != '\0'; ++string) hash = std::rotl(hash, 5) + static_cast<unsigned char>(*string);
  return hash;
}
