// The folder of the product.
#include "ks_product.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <string>

#include "pfm.h"
#include "support/child.h"
#include "support/exact_text.h"
#include "support/faults.h"
#include "support/landing.h"
#include "support/signals.h"

using ks_test::ExactText;
using ks_test::in_child;
using ks_test::Outcome;

namespace {

constexpr size_t kSize = KS_PRODUCT_DIR_SIZE;

std::string product_dir(const char *sub) {
  const ExactText buffer("", kSize);
  EXPECT_EQ(ks_product_dir(buffer, sub), buffer.get());
  return buffer.get();
}

std::string tool_dir(const char *tool) {
  const ExactText buffer("", kSize);
  EXPECT_EQ(ks_product_tool_dir(buffer, tool), buffer.get());
  return buffer.get();
}

TEST(ProductDir, IsTheDefaultWithoutVariables) {
  EXPECT_EQ(product_dir(nullptr), "/opt/quillons/tallowbay");
  EXPECT_EQ(product_dir("etc"), "/opt/quillons/tallowbay/etc");
  EXPECT_EQ(product_dir(""), "/opt/quillons/tallowbay/");
  EXPECT_EQ(product_dir("/a"), "/opt/quillons/tallowbay//a");
}

TEST(ProductDir, IsTheFirstVariable) {
  setenv("TALLOWBAYHOME", "/home/t", 1);
  setenv("NORVAHOME", "/home/n", 1);
  EXPECT_EQ(product_dir("x/y"), "/home/t/x/y");
}

TEST(ProductDir, IsTheSecondVariableWithoutTheFirst) {
  setenv("NORVAHOME", "/home/n", 1);
  EXPECT_EQ(product_dir(nullptr), "/home/n");
}

TEST(ProductDir, KeepsAnEmptyFirstVariableAsTheWinner) {
  setenv("TALLOWBAYHOME", "", 1);
  setenv("NORVAHOME", "/home/n", 1);
  EXPECT_EQ(product_dir(nullptr), "");
  EXPECT_EQ(product_dir("etc"), "/etc");
  EXPECT_EQ(tool_dir(nullptr), "/bin");
}

TEST(ProductDir, KeepsAnEmptySecondVariableAsTheWinner) {
  setenv("NORVAHOME", "", 1);
  EXPECT_EQ(product_dir(nullptr), "");
}

TEST(ProductDir, IsReadOnce) {
  std::string value = "TALLOWBAYHOME=/first";
  putenv(value.data());
  EXPECT_EQ(product_dir(nullptr), "/first");
  value.replace(15, 5, "other");  // the environment's own text
  EXPECT_EQ(product_dir(nullptr), "/first");
  setenv("TALLOWBAYHOME", "/second", 1);
  EXPECT_EQ(tool_dir("x"), "/first/bin/x");
}

TEST(ProductDir, IsCutWhereTheBufferEnds) {
  const std::string home(2000, 'h');
  setenv("TALLOWBAYHOME", home.c_str(), 1);
  const std::string cut(kSize - 1, 'h');
  EXPECT_EQ(product_dir(nullptr), cut);
  EXPECT_EQ(product_dir("etc"), cut);
  EXPECT_EQ(tool_dir("x"), cut);
}

TEST(ProductDir, IsWholeUpToTheBuffersEnd) {
  const std::string home(kSize - 5, 'h');
  setenv("TALLOWBAYHOME", home.c_str(), 1);
  EXPECT_EQ(product_dir("etc"), home + "/etc");
  EXPECT_EQ(product_dir("etcs"), home + "/etc");
  EXPECT_EQ(tool_dir(nullptr), home + "/bin");
  EXPECT_EQ(tool_dir("x"), home + "/bin");
}

TEST(ProductDir, WithoutStorageForACopyWarnsAndGoesOn) {
  const Outcome outcome = in_child([] {
    setenv("TALLOWBAYHOME", "/home/t", 1);
    ks_test::fail_call("malloc", 0, ENOMEM);
    if (product_dir("etc") != "/home/t/etc") _exit(1);
    if (product_dir("lib") != "/home/t/lib") _exit(2);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_EQ(outcome.err,
            "noname: Error: No more memory available.\n"  // the allocation's own
            "noname: Warning: Unable to allocate storage.\n");
}

TEST(ProductDir, AFaultComesWhenTheCopyIsKept) {
  ks_test::default_signals();
  pfm_signal(SIGUSR1, ks_test::raise_number);
  char buffer[KS_PRODUCT_DIR_SIZE];
  ks_test::signal_in_call("malloc", 0, SIGUSR1);
  EXPECT_EQ(ks_test::land([&] { ks_product_dir(buffer, nullptr); }).status, SIGUSR1);
  const int before = ks_test::count_calls("malloc");
  ks_product_dir(buffer, nullptr);
  EXPECT_EQ(ks_test::count_calls("malloc"), before);
}

TEST(ProductToolDir, IsBinInTheProducts) {
  EXPECT_EQ(tool_dir(nullptr), "/opt/quillons/tallowbay/bin");
  EXPECT_EQ(tool_dir("tallowquery"), "/opt/quillons/tallowbay/bin/tallowquery");
  EXPECT_EQ(tool_dir(""), "/opt/quillons/tallowbay/bin/");
}

TEST(ProductToolDir, KeepsTheQuotedFormWithoutQuotes) {
  setenv("TALLOWBAYHOME", "/with blank", 1);
  const ExactText buffer("", kSize);
  EXPECT_EQ(ks_product_tool_dir_quoted(buffer, "a tool"), buffer.get());
  EXPECT_STREQ(buffer, "/with blank/bin/a tool");
  ks_product_tool_dir_quoted(buffer, nullptr);
  EXPECT_STREQ(buffer, "/with blank/bin");
}

}  // namespace
