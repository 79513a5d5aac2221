// TXZonInputStream over a data source answering random lengths (never more than asked): every read
// answers the answer's length, holds its bytes and leaves the rest of the asked-for span zeroed.

#include "FuzzSupport.h"

#include "platform/runtime/Class.h"
#include "platform/values/Data.h"
#include "utilities/data/TXZonInputStream.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

using namespace zon;

namespace {

// Answers the next input byte's worth of input, capped at what was asked; nil for a 0xFF byte.
class FuzzSource final : public Object {
    ZON_OBJECT(FuzzSource, Object)
public:
    static void exportMethods(Class& cls) { cls.exportMethod("stream:dataOfLength:", &FuzzSource::dataOfLength); }
    Ref<Data> dataOfLength(TXZonInputStream*, unsigned long length)
    {
        if (input.empty() || input[0] == 0xFF) {
            if (!input.empty())
                input = input.subspan(1);
            lastAnswer.clear();
            return nullptr;
        }
        const size_t count = std::min({size_t(input[0]), size_t(length), input.size() - 1});
        lastAnswer.assign(input.begin() + 1, input.begin() + 1 + long(count));
        input = input.subspan(1 + count);
        return Data::dataWithBytes(lastAnswer.data(), lastAnswer.size());
    }
    std::span<const uint8_t> input;
    std::vector<uint8_t> lastAnswer;
};

ZON_DEFINE_CLASS(FuzzSource, "FuzzInputStreamSource")

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static Ref<FuzzSource> source = makeObject<FuzzSource>();
    static Ref<TXZonInputStream> stream = TXZonInputStream::inputStreamWithDataSource(source.get());
    fuzz::check(stream != nullptr);
    source->input = std::span(data, size);
    std::vector<uint8_t> buffer(300);
    while (!source->input.empty()) {
        const size_t asked = source->input[0] % 256;
        source->input = source->input.subspan(1);
        std::fill(buffer.begin(), buffer.end(), 0xAA);
        const long count = stream->read_maxLength(buffer.data(), asked);
        fuzz::check(count == long(source->lastAnswer.size()));
        fuzz::check(std::equal(source->lastAnswer.begin(), source->lastAnswer.end(), buffer.begin()));
        fuzz::check(std::all_of(buffer.begin() + count, buffer.begin() + long(asked), [](uint8_t b) { return b == 0; }));
        fuzz::check(std::all_of(buffer.begin() + long(asked), buffer.end(), [](uint8_t b) { return b == 0xAA; }));
        fuzz::check(stream->hasBytesAvailable());
    }
    return 0;
}
