// Where a finished text goes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "imsg.h"
#include "msg/imsg_internal.h"
#include "pfm.h"
#include "support/child.h"
#include "support/faults.h"
#include "support/landing.h"

using ks_test::in_child;
using ks_test::Outcome;

namespace {

// Writes "<number>:<info>(<text>)", past the streams.
template <int kNumber>
void take(void *info, const char *text) {
  dprintf(STDOUT_FILENO, "%d:%s(%s)", kNumber, info != nullptr ? static_cast<char *>(info) : "-",
          text);
}

constexpr imsg_out_fn_t kTakers[20] = {take<0>,  take<1>,  take<2>,  take<3>,  take<4>,
                                       take<5>,  take<6>,  take<7>,  take<8>,  take<9>,
                                       take<10>, take<11>, take<12>, take<13>, take<14>,
                                       take<15>, take<16>, take<17>, take<18>, take<19>};

char info_word[] = "info";
char other_word[] = "other";

// Prints "t" under a type, without a prefix.
void print(int type) {
  imsg_suppress_prefix(1);
  imsg_print(type, "t", -1);
}

void print_all() {
  for (int type = 0; type < IMSG_TYPE_COUNT; ++type) print(type);
}

// Sets the procedure of one type.
void set_procedure(int type, imsg_out_fn_t procedure, void *info = info_word) {
  imsg_out_fn_t procedures[IMSG_TYPE_COUNT];
  void *old_info;
  imsg_get_redirect_procs(IMSG_TYPE_COUNT, procedures, &old_info);
  procedures[type] = procedure;
  imsg_set_redirect_procs(procedures, IMSG_TYPE_COUNT, info);
}

imsg_out_fn_t procedure_of(int type) {
  imsg_out_fn_t procedures[IMSG_TYPE_COUNT];
  void *info;
  imsg_get_redirect_procs(IMSG_TYPE_COUNT, procedures, &info);
  return procedures[type];
}

// The table of procedures.

TEST(Routing, EachTypeGoesToItsProcedureWithTheInfoWord) {
  const Outcome outcome = in_child([] {
    imsg_set_redirect_procs(kTakers, IMSG_TYPE_COUNT, info_word);
    print_all();
  });
  EXPECT_EQ(outcome.out,
            "0:info(t)1:info(t)2:info(t)3:info(t)4:info(t)5:info(t)6:info(t)7:info(t)8:info(t)"
            "9:info(t)10:info(t)");
  EXPECT_EQ(outcome.err, "");
}

TEST(Routing, AProcedureGetsTheTextWithItsPrefix) {
  const Outcome outcome = in_child([] {
    imsg_set_redirect_procs(kTakers, IMSG_TYPE_COUNT, nullptr);
    imsg_print(IMSG_TYPE_ERROR, "It is %d.\n", -1, 7);
  });
  EXPECT_EQ(outcome.out, "6:-(noname: Error: It is 7.\n)");
}

TEST(Routing, AnUnknownTypeGoesTheWayOfAnError) {
  for (int type : {11, INT_MAX, -1, INT_MIN}) {
    const Outcome outcome = in_child([&] {
      imsg_set_redirect_procs(kTakers, IMSG_TYPE_COUNT, nullptr);
      print(type);
    });
    EXPECT_EQ(outcome.out, "6:-(t)") << type;
  }
}

TEST(Routing, BoxOutputWithoutABoxGoesTheWayOfPlainOutput) {
  const Outcome outcome = in_child([] {
    set_procedure(IMSG_TYPE_OK, take<0>);
    set_procedure(IMSG_TYPE_OK_CONT, take<1>);
    print(IMSG_TYPE_BOX);
    print(IMSG_TYPE_BOX_CONT);
  });
  EXPECT_EQ(outcome.out, "0:info(t)1:info(t)");
}

TEST(Routing, KeepsThePrefixOfABoxThatGoesAsPlainOutput) {
  const Outcome outcome = in_child([] {
    setenv("PRINT_SUBSYS_OK", "1", 1);
    set_procedure(IMSG_TYPE_OK, take<0>);
    imsg_print(IMSG_TYPE_BOX, "t", -1);
    imsg_print(IMSG_TYPE_OK, "t", -1);
  });
  EXPECT_EQ(outcome.out, "0:info(noname: t)0:info(noname: Ok: t)");
}

TEST(Routing, EachBoxTypeFallsBackByItself) {
  const Outcome outcome = in_child([] {
    set_procedure(IMSG_TYPE_OK, take<0>);
    set_procedure(IMSG_TYPE_OK_CONT, take<1>);
    set_procedure(IMSG_TYPE_BOX_CONT, take<3>);
    print(IMSG_TYPE_BOX);
    print(IMSG_TYPE_BOX_CONT);
  });
  EXPECT_EQ(outcome.out, "0:info(t)3:info(t)");
}

// A procedure in a box entry that is not the default one keeps the message a box.
TEST(Routing, ABoxWithANullProcedureGoesToItsStream) {
  const Outcome outcome = in_child([] {
    set_procedure(IMSG_TYPE_OK, take<0>);
    set_procedure(IMSG_TYPE_BOX, nullptr);
    print(IMSG_TYPE_BOX);
  });
  EXPECT_EQ(outcome.out, "t");
}

struct Value {
  const char *name;
  imsg_out_fn_t procedure;
  const char *streams;  // which types it lets through: o to stdout, e to stderr
};

TEST(Routing, ANullProcedureLeavesTheTextToItsStreamAndTwoOthersDropIt) {
  for (const Value &value :
       {Value{"null", nullptr, "ooooeeeeeee"},
        Value{"default", imsg_append_proc_default, "ooooeeeeeee"},
        Value{"suppress", imsg_append_proc_suppress, ""}, Value{"nothing", IMSG_OUT_NOTHING, ""}}) {
    const Outcome outcome = in_child([&] {
      for (int type = 0; type < IMSG_TYPE_COUNT; ++type) set_procedure(type, value.procedure);
      print_all();
    });
    const std::string streams = value.streams;
    const auto count = [&](char stream) {
      return std::string(static_cast<size_t>(std::count(streams.begin(), streams.end(), stream)),
                         't');
    };
    EXPECT_EQ(outcome.out, count('o')) << value.name;
    EXPECT_EQ(outcome.err, count('e')) << value.name;
    EXPECT_EQ(outcome.end(), "exit 0") << value.name;
  }
}

TEST(Routing, AnAllOnesPointerIsNothing) {
  EXPECT_EQ(reinterpret_cast<uintptr_t>(IMSG_OUT_NOTHING), UINTPTR_MAX);
}

TEST(Routing, ALogOnlyMessageIsDroppedAtTheStart) {
  EXPECT_EQ(procedure_of(IMSG_TYPE_LOG_ONLY), imsg_append_proc_suppress);
  const Outcome outcome = in_child([] { print(IMSG_TYPE_LOG_ONLY); });
  EXPECT_EQ(outcome.out + outcome.err, "");
}

TEST(Routing, NothingReachesAStreamBesideAProcedure) {
  const Outcome outcome = in_child([] {
    set_procedure(IMSG_TYPE_ERROR, take<6>);
    print(IMSG_TYPE_ERROR);
  });
  EXPECT_EQ(outcome.out, "6:info(t)");
  EXPECT_EQ(outcome.err, "");
}

TEST(Routing, AProcedureMayPassTheTextOnToItsStream) {
  const Outcome outcome = in_child([] {
    const auto copy = [](void *, const char *text) {
      dprintf(STDERR_FILENO, "copied ");
      imsg_append_proc_default(nullptr, text);
    };
    set_procedure(IMSG_TYPE_OK, copy);
    set_procedure(IMSG_TYPE_WARNING, copy);
    print(IMSG_TYPE_OK);
    print(IMSG_TYPE_WARNING);
  });
  EXPECT_EQ(outcome.out, "t");
  EXPECT_EQ(outcome.err, "copied copied t");
}

TEST(Routing, AProcedureMayPrintAMessageOfAnotherType) {
  const Outcome outcome = in_child([] {
    set_procedure(IMSG_TYPE_ERROR, [](void *, const char *) {
      imsg_print(IMSG_TYPE_WARNING, "there was an error\n", -1);
    });
    print(IMSG_TYPE_ERROR);
    print(IMSG_TYPE_OK);
  });
  EXPECT_EQ(outcome.err, "there was an error\n");
  EXPECT_EQ(outcome.out, "t");
}

TEST(Routing, AProcedureMayRaise) {
  const Outcome outcome = in_child([] {
    set_procedure(IMSG_TYPE_ERROR, [](void *, const char *) { pfm_raise(77); });
    const ks_test::Landing landing = ks_test::land([] { print(IMSG_TYPE_ERROR); });
    imsg_print(IMSG_TYPE_OK, "landed %d held %d", -1, landing.status, pfm_inhibit_count());
  });
  EXPECT_EQ(outcome.out, "landed 77 held 0");
}

TEST(Routing, TheDefaultProcedureStartsTheModule) {
  EXPECT_EQ(in_child([] { imsg_append_proc_default(nullptr, "text"); }).out, "text");
}

TEST(Routing, TheSuppressingProcedureDoesNothing) {
  const Outcome outcome = in_child([] { imsg_append_proc_suppress(info_word, "text"); });
  EXPECT_EQ(outcome.out + outcome.err, "");
}

// IMSG_DUP_OUTPUT.

Outcome duplicated(const char *value, const std::function<void()> &body) {
  return in_child([&] {
    if (value != nullptr) setenv("IMSG_DUP_OUTPUT", value, 1);
    body();
  });
}

TEST(DuplicatedOutput, GoesToTheStreamFirstAndThenToTheProcedure) {
  const Outcome outcome = duplicated("1", [] {
    imsg_set_redirect_procs(kTakers, IMSG_TYPE_COUNT, info_word);
    print(IMSG_TYPE_OK);
    print(IMSG_TYPE_ERROR);
  });
  EXPECT_EQ(outcome.out, "t0:info(t)6:info(t)");
  EXPECT_EQ(outcome.err, "t");
}

TEST(DuplicatedOutput, IsAWishInANumber) {
  const auto output = [](const char *value) {
    return duplicated(value,
                      [] {
                        set_procedure(IMSG_TYPE_OK, take<0>);
                        print(IMSG_TYPE_OK);
                      })
        .out;
  };
  for (const char *on : {"1", "2", "-1", " 7", "+3", "2x", "010"}) {
    EXPECT_EQ(output(on), "t0:info(t)") << on;
  }
  for (const char *off : {"0", "", "x", "-", "x1", "00", "0x1"}) {
    EXPECT_EQ(output(off), "0:info(t)") << off;
  }
  EXPECT_EQ(output(nullptr), "0:info(t)");
}

TEST(DuplicatedOutput, KeepsTheFirstUseAsTheMomentOfReading) {
  const Outcome late = duplicated(nullptr, [] {
    print(IMSG_TYPE_OK);
    set_procedure(IMSG_TYPE_OK, nullptr);
    print(IMSG_TYPE_OK);
    setenv("IMSG_DUP_OUTPUT", "1", 1);
    set_procedure(IMSG_TYPE_OK, take<0>);
    print(IMSG_TYPE_OK);
    setenv("IMSG_DUP_OUTPUT", "0", 1);
    print(IMSG_TYPE_OK);
  });
  EXPECT_EQ(late.out, "ttt0:info(t)t0:info(t)");
  const Outcome too_late = duplicated("0", [] {
    set_procedure(IMSG_TYPE_OK, take<0>);
    print(IMSG_TYPE_OK);
    setenv("IMSG_DUP_OUTPUT", "1", 1);
    print(IMSG_TYPE_OK);
  });
  EXPECT_EQ(too_late.out, "0:info(t)0:info(t)");
}

TEST(DuplicatedOutput, KeepsASuppressedMessageAsAFirstUse) {
  const Outcome outcome = duplicated(nullptr, [] {
    print(IMSG_TYPE_LOG_ONLY);
    setenv("IMSG_DUP_OUTPUT", "1", 1);
    set_procedure(IMSG_TYPE_OK, take<0>);
    print(IMSG_TYPE_OK);
  });
  EXPECT_EQ(outcome.out, "0:info(t)");
}

TEST(DuplicatedOutput, KeepsWhatIsDroppedGoingToItsStream) {
  const Outcome outcome = duplicated("1", [] {
    set_procedure(IMSG_TYPE_OK, imsg_append_proc_suppress);
    set_procedure(IMSG_TYPE_WARNING, IMSG_OUT_NOTHING);
    imsg_suppress_prefix(1);
    imsg_print(IMSG_TYPE_OK, "ok", -1);
    imsg_print(IMSG_TYPE_WARNING, "warning ", -1);
    imsg_print(IMSG_TYPE_LOG_ONLY, "log", -1);
  });
  EXPECT_EQ(outcome.out, "ok");
  EXPECT_EQ(outcome.err, "warning log");
}

TEST(DuplicatedOutput, LeavesTheDefaultAlone) {
  const Outcome outcome = duplicated("1", print_all);
  EXPECT_EQ(outcome.out, "tttt");
  EXPECT_EQ(outcome.err, "ttttttt");
}

// The redirected message comes to its procedure by way of another, and both look at the wish.
TEST(DuplicatedOutput, KeepsTheOlderInterfaceWritingTwice) {
  const Outcome outcome = duplicated("1", [] {
    imsg_redirect_output(take<0>, info_word, take<6>, other_word);
    print(IMSG_TYPE_OK);
    print(IMSG_TYPE_TRACE);
  });
  EXPECT_EQ(outcome.out, "tt0:info(t)6:other(t)");
  EXPECT_EQ(outcome.err, "tt");
}

// Reading and setting the table.

// An array of exactly the entries of the table, so that one too far is seen.
std::unique_ptr<imsg_out_fn_t[]> exact_table() {
  auto table = std::make_unique<imsg_out_fn_t[]>(IMSG_TYPE_COUNT);
  std::copy_n(kTakers, IMSG_TYPE_COUNT, table.get());
  return table;
}

TEST(RedirectProcs, StartWithTheDefault) {
  for (int type = IMSG_TYPE_OK; type < IMSG_TYPE_LOG_ONLY; ++type) {
    EXPECT_EQ(procedure_of(type), imsg_append_proc_default) << type;
  }
  void *info = info_word;
  imsg_get_redirect_procs(0, nullptr, &info);
  EXPECT_EQ(info, nullptr);
}

TEST(RedirectProcs, TakeElevenOfTwenty) {
  const auto eleven = exact_table();
  imsg_set_redirect_procs(eleven.get(), 20, info_word);
  for (int type = 0; type < IMSG_TYPE_COUNT; ++type) EXPECT_EQ(procedure_of(type), kTakers[type]);
}

TEST(RedirectProcs, GiveElevenOfTwenty) {
  imsg_set_redirect_procs(kTakers, IMSG_TYPE_COUNT, info_word);
  const auto eleven = exact_table();
  std::fill_n(eleven.get(), IMSG_TYPE_COUNT, nullptr);
  void *info = nullptr;
  imsg_get_redirect_procs(20, eleven.get(), &info);
  for (size_t type = 0; type < IMSG_TYPE_COUNT; ++type) EXPECT_EQ(eleven[type], kTakers[type]);
  EXPECT_EQ(info, info_word);
}

TEST(RedirectProcs, TakeAndGiveTheFirstFew) {
  imsg_set_redirect_procs(kTakers, 3, info_word);
  EXPECT_EQ(procedure_of(2), take<2>);
  EXPECT_EQ(procedure_of(3), imsg_append_proc_default);
  imsg_out_fn_t procedures[3] = {};
  void *info;
  imsg_get_redirect_procs(2, procedures, &info);
  EXPECT_EQ(procedures[0], take<0>);
  EXPECT_EQ(procedures[1], take<1>);
  EXPECT_EQ(procedures[2], nullptr);
}

TEST(RedirectProcs, ANegativeCountIsNone) {
  for (int count : {-1, INT_MIN}) {
    imsg_set_redirect_procs(kTakers, count, info_word);
    EXPECT_EQ(procedure_of(IMSG_TYPE_OK), imsg_append_proc_default);
    imsg_out_fn_t procedure = take<5>;
    void *info = nullptr;
    imsg_get_redirect_procs(count, &procedure, &info);
    EXPECT_EQ(procedure, take<5>);
    EXPECT_EQ(info, info_word) << "the info word is set and read whatever the count";
  }
}

TEST(RedirectProcs, CanBePutBack) {
  const Outcome outcome = in_child([] {
    imsg_redirect_output(take<0>, info_word, take<6>, other_word);
    imsg_out_fn_t procedures[IMSG_TYPE_COUNT];
    void *info;
    imsg_get_redirect_procs(IMSG_TYPE_COUNT, procedures, &info);
    imsg_set_redirect_procs(kTakers + 4, IMSG_TYPE_COUNT, other_word);
    print(IMSG_TYPE_OK);
    imsg_set_redirect_procs(procedures, IMSG_TYPE_COUNT, info);
    print(IMSG_TYPE_OK);
  });
  EXPECT_EQ(outcome.out, "4:other(t)0:info(t)");
}

// The older interface.

TEST(RedirectOutput, SetsOneProcedureForOutputAndOneForErrors) {
  const Outcome outcome = in_child([] {
    imsg_redirect_output(take<0>, info_word, take<6>, other_word);
    print_all();
  });
  // Box output goes the way of plain output, whose procedure is not the default.
  EXPECT_EQ(outcome.out,
            "0:info(t)0:info(t)0:info(t)0:info(t)6:other(t)6:other(t)6:other(t)6:other(t)"
            "6:other(t)6:other(t)");
  EXPECT_EQ(outcome.err, "");
}

TEST(RedirectOutput, LeavesTheBoxAndTheLogAlone) {
  for (int type : {IMSG_TYPE_BOX, IMSG_TYPE_BOX_CONT, IMSG_TYPE_LOG_ONLY}) {
    set_procedure(type, kTakers[type]);
  }
  imsg_redirect_output(take<15>, info_word, take<16>, other_word);
  for (int type : {IMSG_TYPE_BOX, IMSG_TYPE_BOX_CONT, IMSG_TYPE_LOG_ONLY}) {
    EXPECT_EQ(procedure_of(type), kTakers[type]);
  }
}

TEST(RedirectOutput, SetsTheLibrarysOwnProceduresAsSuch) {
  imsg_redirect_output(imsg_append_proc_suppress, info_word, take<6>, other_word);
  EXPECT_EQ(procedure_of(IMSG_TYPE_OK), imsg_append_proc_suppress);
  EXPECT_EQ(procedure_of(IMSG_TYPE_OK_CONT), imsg_append_proc_suppress);
  EXPECT_NE(procedure_of(IMSG_TYPE_ERROR), imsg_append_proc_default);
  imsg_redirect_output(imsg_append_proc_default, nullptr, imsg_append_proc_default, nullptr);
  for (int type = IMSG_TYPE_OK; type < IMSG_TYPE_LOG_ONLY; ++type) {
    EXPECT_EQ(procedure_of(type), imsg_append_proc_default) << type;
  }
}

TEST(RedirectOutput, OfNullGoesToTheStreamsAndOfAllOnesNowhere) {
  const Outcome outcome = in_child([] {
    imsg_redirect_output(nullptr, info_word, IMSG_OUT_NOTHING, other_word);
    print_all();
  });
  EXPECT_EQ(outcome.out, "tttt");
  EXPECT_EQ(outcome.err, "");
}

TEST(RedirectOutput, TheAdapterGivesTheStreamOfItsGroup) {
  const Outcome outcome = in_child([] {
    const auto copy = [](void *, const char *text) { imsg_append_proc_default(nullptr, text); };
    const imsg_window_t window = {copy, nullptr};
    imsg_use_window(&window);
    imsg_set_output_box(&window);
    print_all();
  });
  EXPECT_EQ(outcome.out, "tttt");
  EXPECT_EQ(outcome.err, "tttttt");
}

TEST(UseWindow, IsOneProcedureForBothGroups) {
  const Outcome outcome = in_child([] {
    const imsg_window_t window = {take<7>, info_word};
    imsg_use_window(&window);
    print(IMSG_TYPE_OK);
    print(IMSG_TYPE_TRACE_CONT);
    imsg_out_fn_t out = nullptr, err = nullptr;
    void *out_arg = nullptr, *err_arg = nullptr;
    imsg_get_redirect_info(&out, &out_arg, &err, &err_arg);
    _exit(out == take<7> && err == take<7> && out_arg == info_word && err_arg == info_word);
  });
  EXPECT_EQ(outcome.out, "7:info(t)7:info(t)");
  EXPECT_EQ(outcome.end(), "exit 1");
}

TEST(SetOutputBox, TakesBoxesAndNothingElse) {
  const Outcome outcome = in_child([] {
    imsg_window_t window = {take<2>, info_word};
    imsg_set_output_box(&window);
    window = {take<9>, other_word};  // its contents were kept
    print_all();
  });
  EXPECT_EQ(outcome.out, "tt2:info(t)2:info(t)");
  EXPECT_EQ(outcome.err, "tttttt");
}

TEST(SetOutputBox, OfTheDefaultGivesTheBoxBack) {
  const Outcome outcome = in_child([] {
    imsg_window_t window = {take<2>, info_word};
    imsg_set_output_box(&window);
    window = {imsg_append_proc_default, nullptr};
    imsg_set_output_box(&window);
    set_procedure(IMSG_TYPE_OK, take<0>);
    print(IMSG_TYPE_BOX);
    window = {imsg_append_proc_suppress, nullptr};
    imsg_set_output_box(&window);
    print(IMSG_TYPE_BOX);
  });
  EXPECT_EQ(outcome.out, "0:info(t)");
}

TEST(RedirectInfo, StartsWithTheDefaultAndThreeNulls) {
  imsg_out_fn_t out = nullptr, err = take<1>;
  void *out_arg = info_word, *err_arg = info_word;
  imsg_get_redirect_info(&out, &out_arg, &err, &err_arg);
  EXPECT_EQ(out, imsg_append_proc_default);
  EXPECT_EQ(out_arg, nullptr);
  EXPECT_EQ(err, nullptr);
  EXPECT_EQ(err_arg, nullptr);
}

TEST(RedirectInfo, ReadsThroughThePointersThatAreThere) {
  imsg_redirect_output(take<3>, info_word, take<4>, other_word);
  imsg_get_redirect_info(nullptr, nullptr, nullptr, nullptr);
  imsg_out_fn_t out = nullptr, err = nullptr;
  void *out_arg = nullptr, *err_arg = nullptr;
  imsg_get_redirect_info(&out, nullptr, nullptr, nullptr);
  EXPECT_EQ(out, take<3>);
  imsg_get_redirect_info(nullptr, &out_arg, nullptr, nullptr);
  EXPECT_EQ(out_arg, info_word);
  imsg_get_redirect_info(nullptr, nullptr, &err, nullptr);
  EXPECT_EQ(err, take<4>);
  imsg_get_redirect_info(nullptr, nullptr, nullptr, &err_arg);
  EXPECT_EQ(err_arg, other_word);
}

TEST(RedirectInfo, HoldsTheLibrarysOwnProceduresToo) {
  imsg_redirect_output(imsg_append_proc_suppress, info_word, imsg_append_proc_default, other_word);
  imsg_out_fn_t out = nullptr, err = nullptr;
  void *out_arg = nullptr;
  imsg_get_redirect_info(&out, &out_arg, &err, nullptr);
  EXPECT_EQ(out, imsg_append_proc_suppress);
  EXPECT_EQ(out_arg, info_word);
  EXPECT_EQ(err, imsg_append_proc_default);
}

TEST(InGui, MeansThatPlainOutputHasAnotherProcedure) {
  EXPECT_EQ(imsg_in_gui(), 0);
  set_procedure(IMSG_TYPE_ERROR, take<6>);
  set_procedure(IMSG_TYPE_BOX, take<2>);
  EXPECT_EQ(imsg_in_gui(), 0);
  for (imsg_out_fn_t procedure : {static_cast<imsg_out_fn_t>(nullptr), imsg_append_proc_suppress,
                                  IMSG_OUT_NOTHING, take<0>}) {
    set_procedure(IMSG_TYPE_OK, procedure);
    EXPECT_EQ(imsg_in_gui(), 1);
  }
  imsg_redirect_output(nullptr, nullptr, imsg_append_proc_default, nullptr);
  EXPECT_EQ(imsg_in_gui(), 1);
  imsg_redirect_output(imsg_append_proc_default, nullptr, take<6>, nullptr);
  EXPECT_EQ(imsg_in_gui(), 0);
}

// Daemons. Both streams of the process are its log.

Outcome daemon(const std::function<void()> &body) {
  return in_child([&] {
    imsg_initialize();
    imsg_suppress_prefix(1);
    setenv("TZ", "UTC", 1);
    ks_test::set_clock(1714957323, 45678);  // 2024-05-06 01:02:03
    ks::imsg_daemon_log_name = "/var/log/daemon";
    ks::real_stdout = fdopen(dup(STDOUT_FILENO), "w");
    ks::real_stderr = fdopen(dup(STDERR_FILENO), "w");
    body();
  });
}

TEST(DaemonTime, StandsBeforeEachMessageAndNoContinuation) {
  const Outcome outcome = daemon([] {
    for (int type = 0; type < IMSG_TYPE_LOG_ONLY; ++type) imsg_print(type, "%d|\n", -1, type);
  });
  EXPECT_EQ(outcome.out, "2024-05-06T01:02:03Z 0||\n1||\n2024-05-06T01:02:03Z 2||\n3||\n");
  EXPECT_EQ(outcome.err,
            "2024-05-06T01:02:03Z 4|\n5|\n2024-05-06T01:02:03Z 6|\n7|\n"
            "2024-05-06T01:02:03Z 8|\n9|\n");
}

TEST(DaemonTime, StandsBeforeAContinuationOfTheOlderInterface) {
  const Outcome outcome = daemon([] {
    const auto copy = [](void *, const char *text) { imsg_append_proc_default(nullptr, text); };
    imsg_redirect_output(copy, nullptr, copy, nullptr);
    print(IMSG_TYPE_OK_CONT);
    print(IMSG_TYPE_TRACE_CONT);
  });
  EXPECT_EQ(outcome.out, "2024-05-06T01:02:03Z t");
  EXPECT_EQ(outcome.err, "2024-05-06T01:02:03Z t");
}

// Several processes may share a log.
TEST(DaemonTime, GoesOutWithItsTextInOneWrite) {
  int ends[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM, 0, ends), 0);
  for (int mode : {_IOFBF, _IOLBF, _IONBF}) {
    const Outcome outcome = daemon([&] {
      ks::real_stderr = fdopen(ends[1], "w");
      setvbuf(ks::real_stderr, nullptr, mode, BUFSIZ);
      imsg_print(IMSG_TYPE_ERROR, "first\nsecond \1\0011Bbold\1\0010B\n", -1);
    });
    EXPECT_EQ(outcome.end(), "exit 0");
    char entry[128] = "";
    recv(ends[0], entry, sizeof entry - 1, MSG_DONTWAIT);
    EXPECT_STREQ(entry, "2024-05-06T01:02:03Z first\nsecond bold\n") << mode;
    EXPECT_EQ(recv(ends[0], entry, sizeof entry - 1, MSG_DONTWAIT), -1) << mode;
  }
  close(ends[0]);
  close(ends[1]);
}

TEST(DaemonTime, ThatCannotBeFormattedIsReportedOnce) {
  const Outcome outcome = daemon([] {
    print(IMSG_TYPE_OK_CONT);
    ks_test::set_clock(-1, 0);
    print(IMSG_TYPE_OK);
    ks_test::set_clock(1714957323, 45678);
    print(IMSG_TYPE_OK);
  });
  EXPECT_EQ(outcome.out, "tt2024-05-06T01:02:03Z t");
  EXPECT_EQ(outcome.err,
            "IMSG Internal error (imsg_print_time: date_fmt_token_general failed) - NULL "
            "Message.\n");
}

}  // namespace
