// Compiled into tests that run in both forms: with --of-nursery among its words, the process has a
// nursery fork the helpers of its calls; without, a program is started for each.
#include "stowline/service/WebServiceBroker.h"

#include <string_view>

namespace {

[[gnu::constructor]] void chooseHelperForm(int count, char** words)
{
    for (int i = 1; i < count; ++i) {
        if (std::string_view(words[i]) == "--of-nursery")
            stowline::WebServiceBroker::useNursery(true);
    }
}

} // namespace
