#pragma once
// A message of raw bytes: an 8-byte little-endian header (body length, a word,
// a doubleword) and a body of values read back in the order written. The
// buffer never grows by itself. Running past the written data or the
// capacity throws zul::Error (code 0); using a Message after Destroy freed its
// buffer is the assertion failure "m_Buffer != NULL".
#include <cstdint>
#include <string>

#include "share/common/TString.h"

namespace zul::socket
{
class Message;

/// An object that writes itself into a Message or reads itself back.
class MessageSerializable
{
public:
    virtual ~MessageSerializable() = default;
    /// bStoring is 1 when the object writes itself, 0 when it reads itself;
    /// nReserved is always 0.
    virtual void Serialize(Message& message, int bStoring, int nReserved) = 0;
};

class Message
{
public:
    static constexpr std::uint16_t MSG_HEADER_SIZE = 8;

    /// A zero-filled buffer of nBytesLength bytes (at least 8), offsets 8.
    explicit Message(std::uint16_t nBytesLength);
    /// A copy of the bytes: write offset nBytesLength, read offset 8.
    Message(const void* pData, std::uint16_t nBytesLength);
    virtual ~Message();
    Message(const Message&) = delete;
    Message& operator=(const Message&) = delete;

    /// Both offsets back to 8; the bytes stay.
    virtual void Reset();
    /// Frees the buffer; capacity and offsets stay.
    virtual void Destroy();

    /// Offsets 8; a new zeroed buffer only when the old one is too small.
    void Allocate(std::uint16_t nBytesLength);
    /// Grows the buffer keeping what was written; never shrinks.
    void Reserve(std::uint16_t nBytesLength);
    void SetData(const void* pData, std::uint16_t nBytesLength);
    /// Moves the read offset back by n bytes, not below 8; 0 rewinds fully.
    void Rewind(std::uint16_t n);

    Message& read(void* pDestination, std::uint16_t n);
    Message& write(const void* pSource, std::uint16_t n);

    /// Hands the message to an object that stores itself into it (flag 1).
    Message& Store(MessageSerializable& object);
    /// Hands the message to an object that loads itself from it (flag 0).
    Message& Load(MessageSerializable& object);

    Message& operator<<(std::uint16_t value);
    Message& operator<<(const std::string& text);
    Message& operator<<(const char* text);
    Message& operator<<(const tstring& text);
    Message& operator<<(const char16_t* text);

    Message& operator>>(std::uint16_t& value);
    Message& operator>>(std::string& text);
    Message& operator>>(tstring& text);
    /// The destination holds the stated length plus a terminator.
    Message& operator>>(char* pText);
    Message& operator>>(char16_t* pText);

    std::uint16_t GetCapacity() const { return m_Capacity; }
    std::uint8_t* GetBuffer() { return m_Buffer; }
    const std::uint8_t* GetBuffer() const { return m_Buffer; }
    std::uint16_t GetLength() const { return m_WriteOffset; }
    std::uint16_t GetReadOffset() const { return m_ReadOffset; }

    std::uint16_t GetBodyLength() const;
    void SetBodyLength(std::uint16_t nLength);
    std::uint16_t GetHeaderWord() const;
    void SetHeaderWord(std::uint16_t nWord);
    std::uint32_t GetHeaderDword() const;
    void SetHeaderDword(std::uint32_t nDword);

    /// "<Message capacity=%d, offset=%d/%d />".
    tstring ToString() const;

private:
    template <class Text> Message& ExtractText(Text& text);
    void GetHeader(std::size_t offset, void* pValue, std::size_t size) const;
    void SetHeader(std::size_t offset, const void* pValue, std::size_t size);

    std::uint16_t m_Capacity;
    std::uint16_t m_ReadOffset;
    std::uint16_t m_WriteOffset;
    std::uint8_t* m_Buffer;
};
} // namespace zul::socket
