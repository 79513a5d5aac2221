#include "platform/values/Base64.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

using namespace zon;

namespace {

std::string plainBase64(std::span<const uint8_t> bytes)
{
    static constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (size_t i = 0; i < bytes.size(); i += 3) {
        const size_t n = std::min<size_t>(3, bytes.size() - i);
        const uint32_t triple = bytes[i] << 16 | (n > 1 ? bytes[i + 1] << 8 : 0) | (n > 2 ? bytes[i + 2] : 0);
        text += kAlphabet[triple >> 18];
        text += kAlphabet[(triple >> 12) & 0x3F];
        text += n > 1 ? kAlphabet[(triple >> 6) & 0x3F] : '=';
        text += n > 2 ? kAlphabet[triple & 0x3F] : '=';
    }
    return text;
}

std::string encoded(std::span<const uint8_t> bytes)
{
    std::string text(base64::encodedLength(bytes.size()), '\0');
    text.resize(static_cast<size_t>(base64::encode(bytes, text.data()) - text.data()));
    return text;
}

} // namespace

TEST(Base64, EncodeMatchesAPlainEncoderForEveryLengthAndByte)
{
    // The encoder takes twelve bytes at a time where it can and six or three elsewhere, loading
    // more than it encodes: every length up to a few blocks and every byte value count, and each
    // input ends where its allocation does, so that a load past the bytes is caught.
    uint32_t seed = 12345;
    for (size_t length = 0; length < 300; ++length) {
        const auto bytes = std::make_unique<uint8_t[]>(length);
        for (size_t i = 0; i < length; ++i)
            bytes[i] = static_cast<uint8_t>(length < 256 && i == 0 ? length : (seed = seed * 1103515245 + 12345) >> 24);
        const std::span<const uint8_t> span(bytes.get(), length);
        const std::string text = encoded(span);
        ASSERT_EQ(text, plainBase64(span)) << length << " bytes";
        ByteVector decoded;
        ASSERT_TRUE(base64::decode(text, decoded)) << text;
        ASSERT_EQ(std::vector<uint8_t>(decoded.begin(), decoded.end()), std::vector<uint8_t>(span.begin(), span.end()));
    }
}

TEST(Base64, DecodeRefusesWhatIsNotBase64)
{
    ByteVector out;
    for (const char* text : {"!!!!", "QQ=a", "Q", "QQ===", "QUJD=", "QQ==QQ==", "Q\xC3\xA9Q"})
        EXPECT_FALSE(base64::decode(text, out)) << text;
    ASSERT_TRUE(base64::decode(" Q\nU\tJ\rD ", out));
    EXPECT_EQ(std::string(out.begin(), out.end()), "ABC");
    ASSERT_TRUE(base64::decode("", out));
    EXPECT_TRUE(out.empty());
}
