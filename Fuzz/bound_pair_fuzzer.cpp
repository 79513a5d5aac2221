// The bound stream pair driven by random write and read sizes against a plain queue: every count
// is the one the buffer's size allows, bytes come out in order, and the ends' events agree with
// what is buffered.

#include "FuzzSupport.h"

#include "platform/io/BoundStreamPair.h"
#include "platform/threads/RunLoop.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

using namespace zon;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1)
        return 0;
    const size_t capacity = size_t(data[0]) % 200 + 1;
    BoundStreamPair pair = createBoundStreamPair(capacity);
    RunLoop* loop = RunLoop::currentRunLoop();
    uint32_t readEvents = 0;
    pair.readStream->setClient(31, [&](Stream*, NSStreamEvent event) { readEvents |= event; });
    pair.readStream->scheduleInRunLoop_forMode(loop, NSDefaultRunLoopMode);
    pair.readStream->open();
    pair.writeStream->open();

    std::deque<uint8_t> model;
    uint8_t next = 0;
    std::vector<uint8_t> bytes(256);
    for (size_t i = 1; i < size; ++i) {
        const size_t amount = data[i] & 0x7F;
        if (data[i] & 0x80) {
            for (size_t k = 0; k < amount; ++k)
                bytes[k] = uint8_t(next + k);
            const long written = pair.writeStream->write_maxLength(bytes.data(), amount);
            fuzz::check(written == long(std::min(amount, capacity - model.size())));
            for (long k = 0; k < written; ++k)
                model.push_back(next++);
        } else if (!model.empty()) {
            const long read = pair.readStream->read_maxLength(bytes.data(), amount);
            fuzz::check(read == long(std::min(amount, model.size())));
            for (long k = 0; k < read; ++k) {
                fuzz::check(bytes[size_t(k)] == model.front());
                model.pop_front();
            }
        }
        fuzz::check(pair.readStream->hasBytesAvailable() == !model.empty());
        fuzz::check(pair.writeStream->hasSpaceAvailable() == (model.size() < capacity));
        if (i % 16 == 0) {
            readEvents = 0;
            loop->runInMode(NSDefaultRunLoopMode, 0.0, false);
            fuzz::check(!(readEvents & NSStreamEventEndEncountered));
        }
    }
    pair.writeStream->close();
    while (!model.empty()) {
        const long read = pair.readStream->read_maxLength(bytes.data(), bytes.size());
        fuzz::check(read > 0);
        model.erase(model.begin(), model.begin() + read);
    }
    fuzz::check(pair.readStream->read_maxLength(bytes.data(), 1) == 0);
    readEvents = 0;
    loop->runInMode(NSDefaultRunLoopMode, 0.0, false);
    fuzz::check((readEvents & NSStreamEventEndEncountered) && !(readEvents & NSStreamEventHasBytesAvailable));
    return 0;
}
