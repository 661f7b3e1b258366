// Printing from inside the library: what fits compiles and prints, what does not fit does not
// compile.
#include "msg/ks_print.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "ks_msg.h"
#include "stg_msg.h"
#include "support/child.h"
#include "support/folder.h"

namespace {

using ks_test::in_child;
using ks_test::Outcome;

TEST(KsPrint, PrintsTheMessageWithItsArguments) {
  const Outcome outcome = in_child([] {
    char name[] = "read";
    const std::string text = "no";
    ks::print<KS_MSG_OPERATION_FAILED>(IMSG_TYPE_ERROR, name, text.c_str());
    ks::print<KS_MSG_NEWLINE>(IMSG_TYPE_OK);
    ks::print<STG_MSG_AREA_CORRUPTED>(IMSG_TYPE_WARNING, 16UL, 255UL);
  });
  EXPECT_EQ(outcome.out, "\n");
  EXPECT_EQ(outcome.err,
            "noname: Error: Operation read: no\n"
            "noname: Warning: Storage area 0x00000010: corrupted at 0x000000FF.\n");
}

// What the compiler says of a function with this body.
Outcome compile(const std::string &body) {
  const ks_test::Folder folder;
  const std::string source = folder.write("source.cc",
                                          "#include \"imsg_msg.h\"\n"
                                          "#include \"ks_msg.h\"\n"
                                          "#include \"msg/ks_print.h\"\n"
                                          "#include \"stg_msg.h\"\n"
                                          "void call(const char *text, int number);\n"
                                          "void call(const char *text, int number) {\n"
                                          "  (void)text, (void)number;\n  " +
                                              body + "\n}\n");
  return ks_test::run_program(
      {NORVAKS_TEST_CXX, "-std=gnu++20", "-fsyntax-only", "-Wall", "-Werror",
       "-I" NORVAKS_BUILD_DIR "/include", "-I" NORVAKS_BUILD_DIR "/src/norvaks_objects_msg",
       "-I" NORVAKS_SOURCE_DIR "/include", "-I" NORVAKS_SOURCE_DIR "/src", source},
      {"LC_ALL=C"});
}

TEST(KsPrint, ArgumentsThatFitCompile) {
  for (const char *body : {
           "ks::print<KS_MSG_LINE>(6, text);",
           "ks::print<KS_MSG_NEWLINE>(0);",
           "ks::print<KS_MSG_OPERATION_ON_FAILED>(6, \"open\", text, imsg_strerror(number));",
           "ks::print<IMSG_MSG_UNKNOWN_TYPE>(6, number, __FILE__, __LINE__);",
           "ks::print<IMSG_MSG_BAD_NUMBER>(6, text, 0L, number);",
           "ks::print<STG_MSG_AREA_CORRUPTED>(6, 1UL, 2UL);",
       }) {
    const Outcome outcome = compile(body);
    EXPECT_EQ(outcome.end() + outcome.err, "exit 0") << body;
  }
}

TEST(KsPrint, ArgumentsThatDoNotFitDoNotCompile) {
  for (const char *body : {
           "ks::print<KS_MSG_LINE>(6);",                                       // too few
           "ks::print<KS_MSG_LINE>(6, text, text);",                           // too many
           "ks::print<KS_MSG_NEWLINE>(6, number);",                            // one for none
           "ks::print<KS_MSG_NEWLINE>(6, &number);",                           // of no known type
           "ks::print<KS_MSG_LINE>(6, number);",                               // %s with an int
           "ks::print<KS_MSG_LINE>(6, &number);",                              // %s with an int *
           "ks::print<KS_MSG_LINE>(6, nullptr);",                              // %s with no text
           "ks::print<IMSG_MSG_UNKNOWN_TYPE>(6, text, text, number);",         // %d with a text
           "ks::print<IMSG_MSG_UNKNOWN_TYPE>(6, 1L, text, number);",           // %d with a long
           "ks::print<IMSG_MSG_UNKNOWN_TYPE>(6, sizeof text, text, number);",  // %d with a size
           "ks::print<IMSG_MSG_UNKNOWN_TYPE>(6, number, number, text);",       // another order
           "ks::print<IMSG_MSG_BAD_NUMBER>(6, text, number, number);",         // %ld with an int
           "ks::print<STG_MSG_AREA_CORRUPTED>(6, text, text);",                // %lX with a pointer
           "ks::print<STG_MSG_AREA_CORRUPTED>(6, 1L, 2L);",                    // %lX with a sign
           "ks::print<STG_MSG_BLOCK_ALLOCATED>(6, 1UL, number);",              // %u with an int
           "ks::print<STG_MSG_BLOCK_ALLOCATED>(6, 1UL, &number);",             // %u with a pointer
           "ks::print<STG_MSG_AREA_CORRUPTED>(6, 1U, 2U);",  // %lX with an unsigned
       }) {
    const Outcome outcome = compile(body);
    EXPECT_EQ(outcome.end(), "exit 1") << body;
    EXPECT_THAT(outcome.err,
                testing::HasSubstr("the arguments do not fit the message's directives"))
        << body;
  }
}

}  // namespace
