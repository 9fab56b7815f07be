#pragma once
#include "TString.h"

namespace zul
{
/// A data error a caller can meet at run time (reading past the end of a
/// message buffer, say). Thrown by value; the code is 0 at every throw.
class Error
{
public:
    Error(const tstring& message, int code) : m_Message(message), m_Code(code) {}

    const tstring& GetMessage() const { return m_Message; }
    int GetCode() const { return m_Code; }

    tstring m_Message;
    int m_Code;
};
} // namespace zul
