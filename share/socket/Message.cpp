#include "Message.h"

#include <cstring>

#include "share/common/Assert.h"
#include "share/common/Error.h"
#include "share/common/Format.h"

namespace zul::socket
{
Message::Message(std::uint16_t nBytesLength)
    : m_Capacity(0), m_ReadOffset(0), m_WriteOffset(0), m_Buffer(NULL)
{
    Reset();
    Allocate(nBytesLength);
}

Message::Message(const void* pData, std::uint16_t nBytesLength)
    : m_Capacity(0), m_ReadOffset(0), m_WriteOffset(0), m_Buffer(NULL)
{
    Reset();
    SetData(pData, nBytesLength);
}

Message::~Message()
{
    Destroy();
}

void Message::Reset()
{
    m_ReadOffset = MSG_HEADER_SIZE;
    m_WriteOffset = MSG_HEADER_SIZE;
}

void Message::Destroy()
{
    delete[] m_Buffer;
    m_Buffer = NULL;
}

void Message::Allocate(std::uint16_t nBytesLength)
{
    ZUL_ASSERT(nBytesLength >= Message::MSG_HEADER_SIZE);
    Message::Reset();
    if (m_Capacity < nBytesLength)
    {
        auto* pBuffer = new std::uint8_t[nBytesLength]();
        delete[] m_Buffer;
        m_Buffer = pBuffer;
        m_Capacity = nBytesLength;
        return;
    }
    ZUL_ASSERT(m_Buffer != NULL);
}

// After Destroy there is nothing to keep, so growing is refused as well:
// the caller wants Allocate.
void Message::Reserve(std::uint16_t nBytesLength)
{
    ZUL_ASSERT(nBytesLength >= Message::MSG_HEADER_SIZE);
    ZUL_ASSERT(m_Buffer != NULL);
    if (m_Capacity >= nBytesLength)
        return;
    // Zeroed although nothing promises it: no stale heap bytes on the wire.
    auto* pBuffer = new std::uint8_t[nBytesLength]();
    std::memcpy(pBuffer, m_Buffer, m_WriteOffset);
    delete[] m_Buffer;
    m_Buffer = pBuffer;
    m_Capacity = nBytesLength;
}

void Message::SetData(const void* pData, std::uint16_t nBytesLength)
{
    Allocate(nBytesLength);
    std::memcpy(m_Buffer, pData, nBytesLength);
    m_WriteOffset = nBytesLength;
}

void Message::Rewind(std::uint16_t n)
{
    const int offset = n == 0 ? MSG_HEADER_SIZE : static_cast<int>(m_ReadOffset) - n;
    m_ReadOffset = static_cast<std::uint16_t>(offset < MSG_HEADER_SIZE ? MSG_HEADER_SIZE : offset);
}

Message& Message::read(void* pDestination, std::uint16_t n)
{
    ZUL_ASSERT(m_Buffer != NULL);
    if (static_cast<int>(m_ReadOffset) + n > m_WriteOffset)
        throw zul::Error(zul::FormatString(u"Message::read(%d) error : %s", n, Message::ToString()), 0);
    // An empty read may come with a null destination (an empty vector's data()).
    if (n != 0)
        std::memcpy(pDestination, m_Buffer + m_ReadOffset, n);
    m_ReadOffset = static_cast<std::uint16_t>(m_ReadOffset + n);
    return *this;
}

Message& Message::write(const void* pSource, std::uint16_t n)
{
    ZUL_ASSERT(m_Buffer != NULL);
    if (static_cast<int>(m_WriteOffset) + n > m_Capacity)
        throw zul::Error(zul::FormatString(u"Message::write(%d) error : %s", n, Message::ToString()), 0);
    if (n != 0)
        std::memcpy(m_Buffer + m_WriteOffset, pSource, n);
    m_WriteOffset = static_cast<std::uint16_t>(m_WriteOffset + n);
    SetBodyLength(static_cast<std::uint16_t>(m_WriteOffset - MSG_HEADER_SIZE));
    return *this;
}

Message& Message::Store(MessageSerializable& object)
{
    object.Serialize(*this, 1, 0);
    return *this;
}

Message& Message::Load(MessageSerializable& object)
{
    object.Serialize(*this, 0, 0);
    return *this;
}

Message& Message::operator<<(std::uint16_t value)
{
    return write(&value, sizeof(value));
}

Message& Message::operator<<(const std::string& text)
{
    const auto nLength = static_cast<std::uint16_t>(text.size());
    *this << nLength;
    if (nLength != 0)
        write(text.data(), nLength);
    return *this;
}

Message& Message::operator<<(const char* text)
{
    return *this << std::string(text);
}

Message& Message::operator<<(const tstring& text)
{
    const auto nBytes = static_cast<std::uint16_t>(text.size() * sizeof(char16_t));
    *this << nBytes;
    if (nBytes != 0)
        write(text.data(), nBytes);
    return *this;
}

Message& Message::operator<<(const char16_t* text)
{
    return *this << tstring(text);
}

Message& Message::operator>>(std::uint16_t& value)
{
    return read(&value, sizeof(value));
}

template <class Text> Message& Message::ExtractText(Text& text)
{
    std::uint16_t nBytes = 0;
    *this >> nBytes;
    if (static_cast<int>(m_ReadOffset) + nBytes > m_WriteOffset)
        throw zul::Error(zul::FormatString(u"Message::operator>>(tstring) error : %s(len=%d)",
                                           Message::ToString(), nBytes),
                         0);
    // A wide string may start at an odd offset: copy its bytes rather than
    // read the units through a misaligned pointer.
    using Unit = typename Text::value_type;
    text.resize(nBytes / sizeof(Unit));
    if (!text.empty())
        std::memcpy(text.data(), m_Buffer + m_ReadOffset, text.size() * sizeof(Unit));
    m_ReadOffset = static_cast<std::uint16_t>(m_ReadOffset + nBytes);
    return *this;
}

Message& Message::operator>>(std::string& text)
{
    return ExtractText(text);
}

Message& Message::operator>>(tstring& text)
{
    return ExtractText(text);
}

Message& Message::operator>>(char* pText)
{
    std::uint16_t nLength = 0;
    *this >> nLength;
    if (nLength != 0)
        read(pText, nLength);
    pText[nLength] = '\0';
    return *this;
}

Message& Message::operator>>(char16_t* pText)
{
    std::uint16_t nBytes = 0;
    *this >> nBytes;
    if (nBytes != 0)
        read(pText, nBytes);
    pText[nBytes / 2] = u'\0';
    return *this;
}

void Message::GetHeader(std::size_t offset, void* pValue, std::size_t size) const
{
    ZUL_ASSERT(m_Buffer != NULL);
    std::memcpy(pValue, m_Buffer + offset, size);
}

void Message::SetHeader(std::size_t offset, const void* pValue, std::size_t size)
{
    ZUL_ASSERT(m_Buffer != NULL);
    std::memcpy(m_Buffer + offset, pValue, size);
}

std::uint16_t Message::GetBodyLength() const
{
    std::uint16_t value = 0;
    GetHeader(0, &value, sizeof(value));
    return value;
}

void Message::SetBodyLength(std::uint16_t nLength)
{
    SetHeader(0, &nLength, sizeof(nLength));
}

std::uint16_t Message::GetHeaderWord() const
{
    std::uint16_t value = 0;
    GetHeader(2, &value, sizeof(value));
    return value;
}

void Message::SetHeaderWord(std::uint16_t nWord)
{
    SetHeader(2, &nWord, sizeof(nWord));
}

std::uint32_t Message::GetHeaderDword() const
{
    std::uint32_t value = 0;
    GetHeader(4, &value, sizeof(value));
    return value;
}

void Message::SetHeaderDword(std::uint32_t nDword)
{
    SetHeader(4, &nDword, sizeof(nDword));
}

tstring Message::ToString() const
{
    return zul::FormatString(u"<Message capacity=%d, offset=%d/%d />", m_Capacity, m_ReadOffset,
                             m_WriteOffset);
}
} // namespace zul::socket
