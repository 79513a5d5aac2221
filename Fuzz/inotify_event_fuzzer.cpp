// Decodes arbitrary bytes as an inotify event stream and checks what the decoder promises: it
// never reads past the bytes, every name lies inside them and holds no NUL, and it stops only
// where no whole event is left.

#include "FuzzSupport.h"
#include "platform/io/InotifyEventDecoderInternal.h"

#include <cstdint>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using zon::InotifyEventDecoder;
    InotifyEventDecoder decoder({data, size});
    const char* const begin = reinterpret_cast<const char*>(data);
    size_t before = 0;
    while (auto event = decoder.next()) {
        zon::fuzz::check(decoder.consumed() > before && decoder.consumed() <= size);
        zon::fuzz::check(event->name.data() == begin + before + InotifyEventDecoder::kHeaderSize);
        zon::fuzz::check(event->name.find('\0') == std::string_view::npos);
        zon::fuzz::check(event->name.data() + event->name.size() <= begin + decoder.consumed());
        before = decoder.consumed();
    }
    const size_t left = size - decoder.consumed();
    if (left >= InotifyEventDecoder::kHeaderSize) {
        uint32_t nameLength;
        std::memcpy(&nameLength, data + decoder.consumed() + 12, sizeof nameLength);
        zon::fuzz::check(nameLength > left - InotifyEventDecoder::kHeaderSize);
    }
    return 0;
}
