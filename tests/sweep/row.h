// The table behind the sweeps: for each exported function a call of it, so that a fault at every
// instruction and the failure of every allocation and of every system call can be tried on all.
//
// A sweep runs a row in a process of its own:
//
//   prepare, call, check, undo     once untouched: what is made at first use stays made
//   call                           with a fault or a failure at one place
//   undo, call, check, undo        untouched again
//
// and looks behind it that no lock, block, descriptor, file, cleanup record or hold on signals is
// left. With `cold` rows the untouched round at the head is left out, since it is the first use that
// counts.
//
// The row's current directory is an empty scratch folder of its own: files belong there. SIGUSR2 is
// the signal that arrives, and 77 the status that its routine raises. Each fault and each failure is
// tried in a copy, made by fork, of the process that stands in front of the call; it shares the files
// and the open descriptions of that process, so `undo` leaves them as `call` found them.
#pragma once

#include <span>
#include <string_view>

namespace ks_test {

struct SweepRow {
  std::string_view function;  // the exported name
  std::string_view about;     // what tells this row from others of the function; often empty

  // Once, before the rounds; NULL for nothing. What it makes is not looked at.
  void (*prepare)();

  // Calls the function as its header asks: what the caller is to release is stored with signals held
  // (pfm_inhibit), a cleanup record of the row's own is only for what the header asks one for.
  // Result: true when the function did what it was asked, false when it told, in the way that its
  // header says, that it could not. Anything else is the row's to find wrong in `check`.
  bool (*call)();

  // What is wrong behind a call that came to its end with the result `done`, or NULL. May look at
  // anything, and call anything.
  const char *(*check)(bool done);

  // Releases what a call has made, wherever a fault has left it, and as its header tells a cleanup
  // branch to; NULL for nothing. The same call must be possible again behind it.
  void (*undo)();

  bool cold = false;

  // What `prepare` makes belongs to the one process that made it, such as a lock of a file, a child or
  // a timer: prepare and the untouched rounds run in each copy.
  bool anew = false;

  // The header gives the call a result for a signal that arrives, so that one whose routine returns
  // may end it.
  bool interruptible = false;

  // The call takes a fault in, so that none need land outside it.
  bool absorbs = false;

  // What the routine of a signal does that returns: a call of what the header lets a routine call
  // while this function runs; NULL for nothing. It runs at most once in a round.
  void (*arrive)() = nullptr;

  // The header has the call end in a panic or an assertion where there is no storage.
  bool panics = false;
};

// A function without a row, and why: it changes no state, allocates nothing and calls nothing of
// libc that could fail, take a lock or allocate; or it cannot return.
struct SweepExemption {
  std::string_view function;
  std::string_view reason;
};

// One module's share of the table.
struct SweepModule {
  std::span<const SweepRow> rows;
  std::span<const SweepExemption> exemptions;
};

extern const SweepModule kSweepPfm;
extern const SweepModule kSweepStg;
extern const SweepModule kSweepList;  // lists, rings, stacks and sorting
extern const SweepModule kSweepHash;
extern const SweepModule kSweepImsg;  // messages, catalogs and the library's identity
extern const SweepModule kSweepStrutl;
extern const SweepModule kSweepDate;
extern const SweepModule kSweepFileutl;
extern const SweepModule kSweepKsProduct;
extern const SweepModule kSweepRt;      // the loop
extern const SweepModule kSweepRtProc;  // children and signals
extern const SweepModule kSweepSysutl;

}  // namespace ks_test
