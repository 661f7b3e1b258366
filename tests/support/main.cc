// Every case starts from surroundings that tell the library nothing, whoever runs it.
#include <gmock/gmock.h>

#include "support/faults.h"
#include "support/surroundings.h"

int main(int argc, char **argv) {
  ks_test::clear_surroundings();
  testing::InitGoogleMock(&argc, argv);
  const int result = RUN_ALL_TESTS();
  ks_test::stop_failing_calls();  // what runs at the exit, such as coverage, is no test
  return result;
}
