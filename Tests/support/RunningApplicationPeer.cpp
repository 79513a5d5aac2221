// A program that says which of the suite's programs it takes itself for: it prints
// "code|display name|path" from TXZonConstants. With a folder argument it then points its main
// bundle at that folder and prints "code|path" again, to show what stays cached.

#include "constants/TXZonConstants.h"
#include "platform/io/Bundle.h"
#include "platform/values/String.h"

#include <cstdio>

using namespace zon;

namespace {

std::string text(const Ref<String>& value) { return value ? value->UTF8String() : std::string("(nil)"); }

} // namespace

int main(int argc, char** argv)
{
    std::printf("%d|%s|%s\n", TXZonConstants::runningApplication(),
        text(TXZonConstants::runningApplicationDisplayName()).c_str(), text(TXZonConstants::runningApplicationPath()).c_str());
    if (argc > 1) {
        Bundle::setMainBundlePathForTesting(String::stringWithUTF8String(argv[1]).get());
        std::printf("%d|%s\n", TXZonConstants::runningApplication(), text(TXZonConstants::runningApplicationPath()).c_str());
    }
    return 0;
}
