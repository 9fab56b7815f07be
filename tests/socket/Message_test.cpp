#include "share/socket/Message.h"

#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "share/common/Error.h"
#include "tests/common/AssertionTestUtil.h"

using zul::socket::Message;

namespace
{
std::vector<int> Bytes(const Message& message)
{
    return std::vector<int>(message.GetBuffer(), message.GetBuffer() + message.GetLength());
}

tstring ErrorText(const std::function<void()>& call)
{
    try
    {
        call();
    }
    catch (const zul::Error& error)
    {
        EXPECT_EQ(0, error.GetCode());
        return error.GetMessage();
    }
    return u"(nothing thrown)";
}
} // namespace

TEST(Message, WireBytesOfEachValue)
{
    const std::vector<int> narrow{4, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0x61, 0x62};
    const std::vector<int> wide{6, 0, 0, 0, 0, 0, 0, 0, 4, 0, 0x61, 0, 0x62, 0};
    const std::vector<int> empty{2, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    const struct
    {
        const char* name;
        std::function<void(Message&)> write;
        std::vector<int> bytes;
    } cases[] = {
        {"nothing", [](Message&) {}, std::vector<int>(8, 0)},
        {"std::string", [](Message& m) { m << std::string("ab"); }, narrow},
        {"const char*", [](Message& m) { m << "ab"; }, narrow},
        {"tstring", [](Message& m) { m << tstring(u"ab"); }, wide},
        {"const char16_t*", [](Message& m) { m << u"ab"; }, wide},
        {"empty string", [](Message& m) { m << ""; }, empty},
        {"empty tstring", [](Message& m) { m << tstring(); }, empty},
        {"16-bit value",
         [](Message& m) { m << std::uint16_t(0x1234); },
         {2, 0, 0, 0, 0, 0, 0, 0, 0x34, 0x12}},
    };
    for (const auto& c : cases)
    {
        Message message(16);
        c.write(message);
        EXPECT_EQ(c.bytes, Bytes(message)) << c.name;
    }
}

TEST(Message, ValuesComeBackInTheOrderWritten)
{
    Message message(128);
    message << std::uint16_t(65535) << std::string("narrow") << tstring(u"wide \u00e9") << "" << u"chars"
            << "array";
    std::uint16_t value = 0;
    std::string narrow;
    tstring wide;
    std::string empty = "not empty";
    char16_t wideArray[16] = {};
    char narrowArray[16] = {};
    message >> value >> narrow >> wide >> empty >> wideArray >> narrowArray;
    EXPECT_EQ(65535, value);
    EXPECT_EQ("narrow", narrow);
    EXPECT_EQ(u"wide \u00e9", wide);
    EXPECT_EQ("", empty);
    EXPECT_EQ(u"chars", tstring(wideArray));
    EXPECT_EQ("array", std::string(narrowArray));
    EXPECT_EQ(message.GetLength(), message.GetReadOffset());
}

TEST(Message, ReadingAndWritingPastTheEndThrowTheExactTexts)
{
    Message small(8);
    EXPECT_EQ(u"Message::write(2) error : <Message capacity=8, offset=8/8 />",
              ErrorText([&] { small << std::uint16_t(1); }));
    EXPECT_EQ(8, small.GetLength());
    std::uint16_t value = 0;
    EXPECT_EQ(u"Message::read(2) error : <Message capacity=8, offset=8/8 />",
              ErrorText([&] { small >> value; }));
    EXPECT_EQ(8, small.GetReadOffset());

    // A 16-bit count near the top must not wrap around and pass the check.
    Message message(16);
    message << std::uint16_t(10) << std::uint16_t(0x6161);
    char sink[16];
    EXPECT_EQ(u"Message::read(65535) error : <Message capacity=16, offset=8/12 />",
              ErrorText([&] { message.read(sink, 65535); }));
    EXPECT_EQ(u"Message::write(65535) error : <Message capacity=16, offset=8/12 />",
              ErrorText([&] { message.write(sink, 65535); }));

    // A string prefix promising more than there is consumes the prefix only.
    const tstring promised =
        u"Message::operator>>(tstring) error : <Message capacity=16, offset=10/12 />(len=10)";
    std::string narrow;
    EXPECT_EQ(promised, ErrorText([&] { message >> narrow; }));
    EXPECT_EQ(10, message.GetReadOffset());
    message.Rewind(0); // back to the first value
    tstring wide;
    EXPECT_EQ(promised, ErrorText([&] { message >> wide; }));
    EXPECT_EQ(10, message.GetReadOffset());
    message.Rewind(2);
    EXPECT_EQ(u"Message::read(10) error : <Message capacity=16, offset=10/12 />",
              ErrorText([&] { message >> sink; }));
}

TEST(Message, SetDataAndResetKeepTheBytes)
{
    std::uint8_t block[20];
    for (int i = 0; i < 20; ++i)
        block[i] = static_cast<std::uint8_t>(0xA0 + i);
    Message message(block, sizeof(block));
    std::uint16_t value = 0;
    message >> value;
    EXPECT_EQ(0xA9A8, value);
    // The old body length stays in the header until the next write.
    message.Reset();
    EXPECT_EQ(8, message.GetLength());
    EXPECT_EQ(0xA1A0, message.GetBodyLength());
    message << std::uint16_t(9);
    EXPECT_EQ(2, message.GetBodyLength());
    EXPECT_EQ(0xA3A2, message.GetHeaderWord());
}

// Library calls the tool does not make: their boundaries only.
TEST(Message, RewindHeaderAllocateAndReserveBoundaries)
{
    Message message(20);
    message << std::uint16_t(1) << std::uint16_t(2);
    std::uint16_t value = 0;
    message >> value >> value;
    message.Rewind(2);
    message >> value;
    EXPECT_EQ(2, value);
    message.Rewind(100);
    EXPECT_EQ(8, message.GetReadOffset());

    message.SetHeaderWord(0xBEEF);
    message.SetHeaderDword(0x01020304);
    EXPECT_EQ((std::vector<int>{4, 0, 0xEF, 0xBE, 4, 3, 2, 1, 1, 0, 2, 0}), Bytes(message));

    message.Allocate(10); // large enough: the bytes stay, only the offsets go back
    EXPECT_EQ(20, message.GetCapacity());
    EXPECT_EQ(0xEF, message.GetBuffer()[2]);
    message.Allocate(30); // too small: a new zeroed buffer
    EXPECT_EQ(0, message.GetBuffer()[2]);
    message << std::uint16_t(0x4242);
    message.Reserve(40);
    message.Reserve(12); // never shrinks
    EXPECT_EQ(40, message.GetCapacity());
    EXPECT_EQ((std::vector<int>{2, 0, 0, 0, 0, 0, 0, 0, 0x42, 0x42}), Bytes(message));

    std::uint8_t block[7] = {};
    for (const auto& call :
         std::vector<std::function<void()>>{[] { Message tooSmall(7); }, [&] { message.Allocate(7); },
                                            [&] { message.Reserve(0); }, [&] { message.SetData(block, 7); }})
        EXPECT_EQ("nBytesLength >= Message::MSG_HEADER_SIZE", FailedExpression(call));
}

TEST(Message, UseAfterDestroyIsAClearFailure)
{
    Message message(16);
    message << std::uint16_t(1);
    message.Destroy();
    EXPECT_EQ(nullptr, message.GetBuffer());
    EXPECT_EQ(u"<Message capacity=16, offset=8/10 />", message.ToString());

    // One call of each kind: the fuzzer makes sure none of the others crashes.
    std::uint16_t value = 0;
    const std::vector<std::function<void()>> calls{[&] { message >> value; }, [&] { message << value; },
                                                   [&] { message.Reserve(64); },
                                                   [&] { message.SetHeaderDword(1); }};
    for (std::size_t i = 0; i < calls.size(); ++i)
        EXPECT_EQ("m_Buffer != NULL", FailedExpression(calls[i])) << i;

    // A size beyond the old capacity brings a fresh buffer.
    message.Allocate(17);
    message << std::uint16_t(5);
    EXPECT_EQ(10, message.GetLength());
}
