// All names of a directory at once.
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "core/ks_frame.h"
#include "file/fileutl_internal.h"
#include "fileutl.h"
#include "stg.h"

using namespace ks;

namespace {

constexpr int kFirstCapacity = 512;

// A list that grows in the caller's array.
struct Names {
  stg_area_t area;
  char ***array;
  int count;
  int capacity;
};

// A new array for as many names; NULL when there is no storage.
char **new_array(stg_area_t area, int capacity) {
  return static_cast<char **>(stg_alloc(area, static_cast<size_t>(capacity) * sizeof(char *)));
}

bool make_room(Names &names) {
  if (names.count < names.capacity) return true;
  if (names.capacity > INT32_MAX / 2 / static_cast<int>(sizeof(char *))) {
    errno = ENOMEM;
    return false;
  }
  bool made = false;
  signals_held([&] {
    char **old = *names.array;
    char **array = new_array(names.area, names.capacity * 2);
    if (array == nullptr) return;
    memcpy(array, old, static_cast<size_t>(names.count) * sizeof *array);
    *names.array = array;
    names.capacity *= 2;
    if (names.area == STG_AREA_HEAP) stg_free(old);
    made = true;
  });
  return made;
}

bool add(Names &names, const char *name) {
  if (!make_room(names)) return false;
  char *copy = nullptr;
  signals_held([&] {
    copy = stg_area_strdup(names.area, name);
    if (copy != nullptr) (*names.array)[names.count++] = copy;
  });
  return copy != nullptr;
}

// False, with errno, when the directory could not be read to its end or there is no storage.
bool add_all(Names &names, fileutl_dir_t *dir) {
  while (const fileutl_dirent_t *entry = fileutl_readdir(dir, 0)) {
    if (!add(names, entry->d_name)) return false;
  }
  return errno == 0;
}

// Frees what the caller could not: a failed call does not tell how many names there are.
void free_names(Names &names) {
  if (names.area != STG_AREA_HEAP) return;
  signals_held([&] {
    while (names.count > 0) stg_free((*names.array)[--names.count]);
  });
}

// Closes the directory, if it is open, once.
int close_once(fileutl_dir_t *&dir) {
  int result = 0;
  signals_held([&] {
    fileutl_dir_t *open = dir;
    dir = nullptr;
    if (open != nullptr) result = fileutl_close_own(open);
  });
  return result;
}

int read_names(const char *path, Names &names, fileutl_dir_t *&dir) {
  signals_held([&] { *names.array = new_array(names.area, names.capacity); });
  if (*names.array == nullptr) return -1;
  signals_held([&] { dir = fileutl_opendir(path); });
  if (dir == nullptr) return -1;
  const bool complete = add_all(names, dir);
  int error = errno;
  if (close_once(dir) == 0 && complete) return names.count;
  if (complete) error = errno;
  free_names(names);
  errno = error;
  return -1;
}

}  // namespace

int fileutl_read_whole_dir(const char *path, stg_area_t area, char ***names) {
  Names found = {area, names, 0, kFirstCapacity};
  fileutl_dir_t *dir = nullptr;
  int result = -1;
  *names = nullptr;
  protect([&] { result = read_names(path, found, dir); },
          [&] {
            close_once(dir);
            free_names(found);
            if (area == STG_AREA_HEAP) stg_free(*names);
            *names = nullptr;
          });
  return result;
}
