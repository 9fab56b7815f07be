// Drives a Message (or a Datagram, which is one) through a sequence of
// operations read from the input, including every use after Destroy.
// zul::Error (code 0) and assertion failures are the class's documented
// refusals; anything else escaping, a crash or a sanitizer report is a bug.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "share/common/Assert.h"
#include "share/common/Error.h"
#include "share/socket/Datagram.h"
#include "share/socket/Message.h"
#include "tests/FuzzCheck.h"

namespace
{
using zul::socket::Datagram;
using zul::socket::Message;

constexpr int kMaxOperations = 256;

// The largest lengths a 16-bit prefix can promise, plus the terminator.
char g_Narrow[65536 + 1];
char16_t g_Wide[32768 + 1];
std::uint8_t g_Raw[65536];

/// Stores or loads a few values through the message it is handed.
class Serializable : public zul::socket::MessageSerializable
{
public:
    void Serialize(Message& message, int bStoring, int nReserved) override
    {
        FUZZ_CHECK(nReserved == 0);
        if (bStoring)
            message << m_Word << m_Text;
        else
            message >> m_Word >> m_Text;
    }

    std::uint16_t m_Word = 0x1234;
    std::string m_Text = "serialized";
};

std::vector<std::uint8_t> BytesOf(FuzzedDataProvider& input, std::uint16_t nLength)
{
    auto bytes = input.ConsumeBytes<std::uint8_t>(nLength);
    bytes.resize(nLength);
    return bytes;
}

tstring WideOf(FuzzedDataProvider& input)
{
    const std::string bytes = input.ConsumeRandomLengthString(1024);
    tstring text;
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2)
        text.push_back(static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) |
                                             (static_cast<unsigned char>(bytes[i + 1]) << 8)));
    return text;
}

/// Every write leaves the header's body length in step with the write offset.
void CheckBodyLength(const Message& message)
{
    FUZZ_CHECK(message.GetBodyLength() == message.GetLength() - Message::MSG_HEADER_SIZE);
}

void Operate(Message& message, Datagram* pDatagram, FuzzedDataProvider& input)
{
    switch (input.ConsumeIntegralInRange<int>(0, 27))
    {
    case 0:
        message.Reset();
        break;
    case 1:
        message.Destroy();
        break;
    case 2:
        message.Allocate(input.ConsumeIntegral<std::uint16_t>());
        break;
    case 3:
        message.Reserve(input.ConsumeIntegral<std::uint16_t>());
        break;
    case 4:
    {
        const auto bytes = BytesOf(input, input.ConsumeIntegral<std::uint16_t>());
        message.SetData(bytes.data(), static_cast<std::uint16_t>(bytes.size()));
        FUZZ_CHECK(message.GetLength() == bytes.size() &&
                   message.GetReadOffset() == Message::MSG_HEADER_SIZE);
        break;
    }
    case 5:
        message.Rewind(input.ConsumeIntegral<std::uint16_t>());
        break;
    case 6:
        message.read(g_Raw, input.ConsumeIntegral<std::uint16_t>());
        break;
    case 7:
    {
        const auto bytes = BytesOf(input, input.ConsumeIntegral<std::uint16_t>());
        message.write(bytes.data(), static_cast<std::uint16_t>(bytes.size()));
        CheckBodyLength(message);
        break;
    }
    case 8:
        message << input.ConsumeIntegral<std::uint16_t>();
        CheckBodyLength(message);
        break;
    case 9:
        message << input.ConsumeRandomLengthString(1024);
        CheckBodyLength(message);
        break;
    case 10:
        message << input.ConsumeRandomLengthString(1024).c_str();
        CheckBodyLength(message);
        break;
    case 11:
        message << WideOf(input);
        CheckBodyLength(message);
        break;
    case 12:
        message << WideOf(input).c_str();
        CheckBodyLength(message);
        break;
    case 13:
    {
        std::uint16_t value = 0;
        message >> value;
        break;
    }
    case 14:
    {
        std::string text;
        message >> text;
        break;
    }
    case 15:
    {
        tstring text;
        message >> text;
        break;
    }
    case 16:
        message >> g_Narrow;
        break;
    case 17:
        message >> g_Wide;
        break;
    case 18:
        (void)message.GetBodyLength();
        (void)message.GetHeaderWord();
        (void)message.GetHeaderDword();
        break;
    case 19:
        message.SetBodyLength(input.ConsumeIntegral<std::uint16_t>());
        break;
    case 20:
        message.SetHeaderWord(input.ConsumeIntegral<std::uint16_t>());
        message.SetHeaderDword(input.ConsumeIntegral<std::uint32_t>());
        break;
    case 21:
        (void)message.ToString();
        break;
    case 22:
    {
        Serializable object;
        message.Store(object);
        CheckBodyLength(message);
        break;
    }
    case 23:
    {
        Serializable object;
        message.Load(object);
        break;
    }
    case 24:
        if (pDatagram != nullptr)
            pDatagram->SetHost(WideOf(input));
        break;
    case 25:
        if (pDatagram != nullptr)
            pDatagram->SetPort(input.ConsumeIntegral<std::uint16_t>());
        break;
    case 26:
        if (pDatagram != nullptr)
        {
            (void)pDatagram->GetHost();
            (void)pDatagram->GetPort();
            (void)pDatagram->ToString();
        }
        break;
    default:
        if (pDatagram != nullptr)
            pDatagram->SetSockAddr(input.ConsumeBool() ? pDatagram->GetSockAddr() : nullptr);
        break;
    }
}

void CheckInvariant(const Message& message)
{
    if (message.GetBuffer() == nullptr)
        return;
    FUZZ_CHECK(Message::MSG_HEADER_SIZE <= message.GetReadOffset());
    FUZZ_CHECK(message.GetReadOffset() <= message.GetLength());
    FUZZ_CHECK(message.GetLength() <= message.GetCapacity());
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* pData, std::size_t nSize)
{
    FuzzedDataProvider input(pData, nSize);
    std::unique_ptr<Message> message;
    Datagram* pDatagram = nullptr;
    try
    {
        switch (input.ConsumeIntegralInRange<int>(0, 2))
        {
        case 0:
            message = std::make_unique<Message>(input.ConsumeIntegral<std::uint16_t>());
            break;
        case 1:
        {
            const auto bytes = BytesOf(input, input.ConsumeIntegral<std::uint16_t>());
            message = std::make_unique<Message>(bytes.data(), static_cast<std::uint16_t>(bytes.size()));
            break;
        }
        default:
            message = std::make_unique<Datagram>();
            pDatagram = static_cast<Datagram*>(message.get());
            break;
        }
    }
    catch (const zul::AssertionFailure&)
    {
        return 0; // a size below the header
    }

    for (int i = 0; i < kMaxOperations && input.remaining_bytes() > 0; ++i)
    {
        const std::uint16_t readOffset = message->GetReadOffset();
        const std::uint16_t writeOffset = message->GetLength();
        try
        {
            Operate(*message, pDatagram, input);
        }
        catch (const zul::Error& error)
        {
            FUZZ_CHECK(error.GetCode() == 0);
            // A refused read or write moves nothing but the values before it:
            // a string's prefix, or a serialized word and prefix.
            const int wrote = message->GetLength() - writeOffset;
            const int read = message->GetReadOffset() - readOffset;
            FUZZ_CHECK(wrote == 0 || wrote == 2 || wrote == 4);
            FUZZ_CHECK(read == 0 || read == 2 || read == 4);
        }
        catch (const zul::AssertionFailure&)
        {
        }
        CheckInvariant(*message);
    }
    return 0;
}
