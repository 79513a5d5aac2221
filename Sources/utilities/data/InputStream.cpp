#include "utilities/data/InputStream.h"

#include "platform/runtime/Class.h"
#include "platform/values/Data.h"

#include <algorithm>
#include <climits>
#include <cstring>

namespace zon {

ZON_DEFINE_CLASS(InputStream, "NSInputStream")

namespace {

class DataInputStream final : public InputStream {
    ZON_OBJECT(DataInputStream, InputStream)
public:
    long read_maxLength(uint8_t* buffer, size_t maxLength) override
    {
        // A mutable data may have shrunk since the last read.
        const size_t left = data_ && data_->length() > position_ ? data_->length() - position_ : 0;
        const size_t count = std::min({maxLength, left, size_t {LONG_MAX}});
        if (count) {
            std::memcpy(buffer, data_->span().data() + position_, count);
            position_ += count;
        }
        return static_cast<long>(count);
    }

private:
    explicit DataInputStream(const Data* data) : data_(const_cast<Data*>(data)) {}

    Ref<Data> data_;
    size_t position_ = 0;
};

ZON_DEFINE_CLASS(DataInputStream, "NSDataInputStream")

} // namespace

Ref<InputStream> InputStream::inputStreamWithData(const Data* data) { return makeObject<DataInputStream>(data); }

} // namespace zon
