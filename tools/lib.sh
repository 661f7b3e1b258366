# Shell functions that the scripts share. Source it; it runs nothing.

top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
log_dir=$top/build/log

say() { printf '== %s\n' "$*"; }
fail() { printf '%s: %s\n' "$(basename "$0")" "$*" >&2; exit 1; }

# package_list FILE: the names in it, one a line.
package_list() { sed 's/#.*//' "$1" | awk 'NF {print $1}'; }

# step TITLE COMMAND...: runs a command with its output in a log, says how long it took, and on
# failure shows the log's last lines and its path.
step() {
  local title=$1 log start=$SECONDS
  shift
  mkdir -p "$log_dir"
  log=$log_dir/$(tr -c 'a-zA-Z0-9_\n' '-' <<<"$title").log
  printf '== %s ... ' "$title"
  if "$@" >"$log" 2>&1 </dev/null; then
    printf 'done (%d s)\n' $((SECONDS - start))
  else
    local status=$?
    printf 'FAILED (%d s)\n' $((SECONDS - start))
    tail -n 40 "$log" >&2
    printf '%s failed with status %d; the whole log: %s\n' "$title" "$status" "$log" >&2
    return "$status"
  fi
}
