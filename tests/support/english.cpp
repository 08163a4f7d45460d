// What the tests compare is English, whatever the language of whoever runs them.

#include "tests/support/environment.h"

namespace tarvex::testing {
namespace {

[[maybe_unused]] const bool is_english = (SetVariable("LC_ALL", "C"), true);

}  // namespace
}  // namespace tarvex::testing
