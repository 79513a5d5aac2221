#include "platform/io/MessageFrameInternal.h"

#include "platform/system/FileCallsInternal.h"
#include "platform/values/Data.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace zon {

void encodeMessageFrameHeader(const MessageFrameHeader& header, uint8_t out[kMessageFrameHeaderSize])
{
    const uint16_t magic = kMessageFrameMagic;
    std::memcpy(out + 0, &header.length, 4);
    std::memcpy(out + 4, &header.requestId, 4);
    std::memcpy(out + 8, &header.messageId, 4);
    std::memcpy(out + 12, &header.flags, 2);
    std::memcpy(out + 14, &magic, 2);
}

MessageFrameLead::MessageFrameLead(const MessageFrameHeader& header, std::span<const uint8_t> prefix)
    : length(static_cast<uint8_t>(kMessageFrameHeaderSize + prefix.size()))
{
    encodeMessageFrameHeader(header, bytes);
    std::copy(prefix.begin(), prefix.end(), bytes + kMessageFrameHeaderSize);
}

size_t MessageFrameWrite::unwrittenParts(iovec* parts) const
{
    size_t count = 0;
    const size_t leadDone = std::min<size_t>(written, lead.length);
    const size_t bodyDone = written - leadDone;
    if (leadDone < lead.length)
        parts[count++] = {const_cast<uint8_t*>(lead.bytes) + leadDone, lead.length - leadDone};
    if (bodyDone < body.size())
        parts[count++] = {const_cast<uint8_t*>(body.span().data()) + bodyDone, body.size() - bodyDone};
    return count;
}

MessageFrameBudget& MessageFrameBudget::incoming()
{
    static MessageFrameBudget* const budget = new MessageFrameBudget(2 * size_t(kMessageFrameMaxLength));
    return *budget;
}

bool MessageFrameBudget::tryTake(size_t bytes)
{
    std::lock_guard lock(mutex_);
    if (bytes > limit_ - held_)
        return false;
    held_ += bytes;
    return true;
}

void MessageFrameBudget::giveBack(size_t bytes)
{
    std::vector<std::function<void()>> waking;
    {
        std::lock_guard lock(mutex_);
        held_ -= std::min(bytes, held_);
        if (bytes)
            waking.swap(waiting_);
    }
    for (auto& wake : waking)
        wake();
}

void MessageFrameBudget::whenRoom(std::function<void()> wake)
{
    {
        std::lock_guard lock(mutex_);
        if (held_ >= limit_) {
            waiting_.push_back(std::move(wake));
            return;
        }
    }
    wake();
}

size_t MessageFrameBudget::held() const
{
    std::lock_guard lock(mutex_);
    return held_;
}

MessagePortMessage messageOfFrame(MessageFrame&& frame, EmptyPayload empty)
{
    MessagePortMessage message;
    message.prefix = frame.prefix;
    message.prefixLength = frame.prefixLength;
    if (empty == EmptyPayload::Data || !frame.payload.empty())
        message.body = Data::dataWithVector(std::move(frame.payload));
    return message;
}

MessageFrameReader::MessageFrameReader(uint32_t maxLength, size_t prefixLength, MessageFrameBudget* budget)
    : maxLength_(std::min(maxLength, kMessageFrameMaxLength))
    , prefixLength_(std::min(prefixLength, kMessagePrefixMaxLength))
    , budget_(budget)
    , staging_(kStagingSize)
{
}

MessageFrameReader::~MessageFrameReader()
{
    if (budget_)
        budget_->giveBack(charged_);
}

bool MessageFrameReader::growPayload()
{
    const size_t size = current_.payload.size();
    const size_t target = std::min(expected_, std::max(kFirstPayloadSize, 4 * size));
    const size_t more = target - size;
    if (budget_ && !budget_->tryTake(more))
        return false;
    try {
        current_.payload.resize(target);
    } catch (...) {
        if (budget_)
            budget_->giveBack(more);
        throw;
    }
    charged_ += more;
    return true;
}

std::span<uint8_t> MessageFrameReader::buffer()
{
    // Once the staging area is drained, the rest of a payload goes straight into its storage.
    lastBufferWasPayload_ = inPayload_ && begin_ == end_;
    if (lastBufferWasPayload_) {
        if (filled_ == current_.payload.size() && !growPayload())
            return {};
        return {current_.payload.data() + filled_, current_.payload.size() - filled_};
    }
    if (begin_ == end_)
        begin_ = end_ = 0;
    else if (staging_.size() - end_ < kMessageFrameHeaderSize + kMessagePrefixMaxLength) {
        std::memmove(staging_.data(), staging_.data() + begin_, end_ - begin_);
        end_ -= begin_;
        begin_ = 0;
    }
    return {staging_.data() + end_, staging_.size() - end_};
}

MessageFrameReader::Status MessageFrameReader::commit(size_t n)
{
    if (status_ != Status::Ok || n == 0)
        return status_;
    if (lastBufferWasPayload_) {
        filled_ += n;
        if (filled_ == expected_)
            finishPayload();
        return status_;
    }
    end_ += n;
    return parseStaging();
}

MessageFrameReader::ReadOutcome MessageFrameReader::readAvailable(int fd)
{
    for (;;) {
        auto room = buffer();
        if (room.empty())
            return ReadOutcome::Starved;
        auto read = readSome(fd, room);
        if (!read && (read.code() == EAGAIN || read.code() == EWOULDBLOCK))
            return ReadOutcome::Drained;
        if (!read || read.value() == 0)
            return ReadOutcome::Ended;
        const size_t n = read.value();
        if (commit(n) != Status::Ok)
            return ReadOutcome::Refused;
        if (n < room.size() || hasFrame())
            return ReadOutcome::Drained; // a short read: the socket is empty for now
    }
}

MessageFrameReader::Status MessageFrameReader::feed(std::span<const uint8_t> bytes)
{
    while (!bytes.empty() && status_ == Status::Ok) {
        auto room = buffer();
        if (room.empty())
            break; // starved: the rest waits for the budget
        size_t n = std::min(room.size(), bytes.size());
        std::memcpy(room.data(), bytes.data(), n);
        bytes = bytes.subspan(n);
        commit(n);
    }
    return status_;
}

MessageFrame MessageFrameReader::takeFrame()
{
    MessageFrame frame = std::move(frames_.front());
    frames_.pop_front();
    return frame;
}

MessageFrameReader::Status MessageFrameReader::parseStaging()
{
    while (status_ == Status::Ok) {
        if (inPayload_) {
            while (filled_ < expected_ && begin_ < end_) {
                if (filled_ == current_.payload.size() && !growPayload())
                    return status_; // the rest stays staged until the budget has room
                const size_t n = std::min(end_ - begin_, current_.payload.size() - filled_);
                std::memcpy(current_.payload.data() + filled_, staging_.data() + begin_, n);
                begin_ += n;
                filled_ += n;
            }
            if (filled_ < expected_)
                return status_;
            finishPayload();
            continue;
        }
        if (end_ - begin_ < kMessageFrameHeaderSize)
            return status_;
        const uint8_t* p = staging_.data() + begin_;
        MessageFrameHeader header;
        uint16_t magic;
        std::memcpy(&header.length, p + 0, 4);
        std::memcpy(&header.requestId, p + 4, 4);
        std::memcpy(&header.messageId, p + 8, 4);
        std::memcpy(&header.flags, p + 12, 2);
        std::memcpy(&magic, p + 14, 2);
        if (magic != kMessageFrameMagic || (header.flags & ~kMessageFrameKnownFlags)) {
            failed_ = header;
            status_ = Status::Corrupt;
            return status_;
        }
        if (header.length > maxLength_) {
            failed_ = header;
            status_ = Status::TooLong;
            return status_;
        }
        // The prefix is read with the header, so the payload alone is left to fill.
        const size_t prefixLength = std::min<size_t>(prefixLength_, header.length);
        if (end_ - begin_ < kMessageFrameHeaderSize + prefixLength)
            return status_;
        begin_ += kMessageFrameHeaderSize;
        current_.header = header;
        std::memcpy(current_.prefix.data(), staging_.data() + begin_, prefixLength);
        current_.prefixLength = static_cast<uint8_t>(prefixLength);
        begin_ += prefixLength;
        current_.payload.clear();
        expected_ = header.length - prefixLength;
        filled_ = 0;
        inPayload_ = true;
    }
    return status_;
}

void MessageFrameReader::finishPayload()
{
    if (budget_)
        budget_->giveBack(std::exchange(charged_, 0));
    frames_.push_back(std::move(current_));
    current_ = MessageFrame {};
    filled_ = 0;
    inPayload_ = false;
}

} // namespace zon
