// Drives a Message (or a Datagram, which is one) through a sequence of
// operations read from the input, including every use after Destroy.
// zul::Error (code 0) and assertion failures are the class's documented
// refusals; anything else escaping, a crash or a sanitizer report is a bug.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdlib>
#include <iterator>
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

    Serializable& Self() { return *this; }

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

std::uint16_t Word(FuzzedDataProvider& input)
{
    return input.ConsumeIntegral<std::uint16_t>();
}

template <class Value> void Extract(Message& message)
{
    Value value{};
    message >> value;
}

void SetData(Message& message, FuzzedDataProvider& input)
{
    const auto bytes = BytesOf(input, Word(input));
    message.SetData(bytes.data(), static_cast<std::uint16_t>(bytes.size()));
    FUZZ_CHECK(message.GetLength() == bytes.size() && message.GetReadOffset() == Message::MSG_HEADER_SIZE);
}

void Write(Message& message, FuzzedDataProvider& input)
{
    const auto bytes = BytesOf(input, Word(input));
    message.write(bytes.data(), static_cast<std::uint16_t>(bytes.size()));
}

void ReadHeader(Message& message, FuzzedDataProvider&)
{
    (void)message.GetBodyLength();
    (void)message.GetHeaderWord();
    (void)message.GetHeaderDword();
}

void SetHeader(Message& message, FuzzedDataProvider& input)
{
    message.SetHeaderWord(Word(input));
    message.SetHeaderDword(input.ConsumeIntegral<std::uint32_t>());
}

using In = FuzzedDataProvider;

struct Operation
{
    void (*m_Run)(Message&, FuzzedDataProvider&);
    // A write that returned must leave the header's body length in step
    // with the write offset.
    bool m_bWrites;
};

// The order is the input's encoding: the seed corpus depends on it.
const Operation kMessageOperations[] = {
    {[](Message& m, In&) { m.Reset(); }, false},
    {[](Message& m, In&) { m.Destroy(); }, false},
    {[](Message& m, In& in) { m.Allocate(Word(in)); }, false},
    {[](Message& m, In& in) { m.Reserve(Word(in)); }, false},
    {SetData, false},
    {[](Message& m, In& in) { m.Rewind(Word(in)); }, false},
    {[](Message& m, In& in) { m.read(g_Raw, Word(in)); }, false},
    {Write, true},
    {[](Message& m, In& in) { m << Word(in); }, true},
    {[](Message& m, In& in) { m << in.ConsumeRandomLengthString(1024); }, true},
    {[](Message& m, In& in) { m << in.ConsumeRandomLengthString(1024).c_str(); }, true},
    {[](Message& m, In& in) { m << WideOf(in); }, true},
    {[](Message& m, In& in) { m << WideOf(in).c_str(); }, true},
    {[](Message& m, In&) { Extract<std::uint16_t>(m); }, false},
    {[](Message& m, In&) { Extract<std::string>(m); }, false},
    {[](Message& m, In&) { Extract<tstring>(m); }, false},
    {[](Message& m, In&) { m >> g_Narrow; }, false},
    {[](Message& m, In&) { m >> g_Wide; }, false},
    {ReadHeader, false},
    {[](Message& m, In& in) { m.SetBodyLength(Word(in)); }, false},
    {SetHeader, false},
    {[](Message& m, In&) { (void)m.ToString(); }, false},
    {[](Message& m, In&) { m.Store(Serializable().Self()); }, true},
    {[](Message& m, In&) { m.Load(Serializable().Self()); }, false},
};

// Nothing happens when the message is no datagram.
void (*const kDatagramOperations[])(Datagram&, FuzzedDataProvider&) = {
    [](Datagram& d, In& in) { d.SetHost(WideOf(in)); },
    [](Datagram& d, In& in) { d.SetPort(Word(in)); },
    [](Datagram& d, In&) { (void)d.ToString(); }, // reads the host and port
    [](Datagram& d, In& in) { d.SetSockAddr(in.ConsumeBool() ? d.GetSockAddr() : nullptr); },
};

void Operate(Message& message, Datagram* pDatagram, FuzzedDataProvider& input)
{
    const std::size_t nMessageOperations = std::size(kMessageOperations);
    const auto index =
        input.ConsumeIntegralInRange<std::size_t>(0, nMessageOperations + std::size(kDatagramOperations) - 1);
    if (index >= nMessageOperations)
    {
        if (pDatagram != nullptr)
            kDatagramOperations[index - nMessageOperations](*pDatagram, input);
        return;
    }
    kMessageOperations[index].m_Run(message, input);
    if (kMessageOperations[index].m_bWrites)
        FUZZ_CHECK(message.GetBodyLength() == message.GetLength() - Message::MSG_HEADER_SIZE);
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
