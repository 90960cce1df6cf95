#include "dmnative/dmt_data.h"

#include "dmnative/dmt_status.h"

DmtData::DmtData(const char *text) : m_type(String), m_text(text) {}

DmtData::DmtData(int number) : m_type(Int), m_number(number) {}

DmtData::DmtData(bool flag) : m_type(Bool), m_flag(flag) {}

DmtData::DmtData(const DMVector<unsigned char> &bytes) : m_type(Bin), m_bytes(bytes) {}

DmtData::DmtData(const DMStringVector &childNames) : m_type(Node), m_childNames(childNames) {}

namespace {

/// Copies the value that a value of the other type does not have.
template <class Value>
int Copy(bool isOfThatType, const Value &from, Value &to)
{
    if (!isOfThatType)
        return DMT_UNSUPPORTED_FORMAT;
    to = from;
    return DMT_OK;
}

} // namespace

int DmtData::GetString(DMString &text) const
{
    if (m_type != String)
        return DMT_UNSUPPORTED_FORMAT;
    text = m_text.c_str() ? m_text : DMString("");
    return DMT_OK;
}

int DmtData::GetInt(int &number) const
{
    return Copy(m_type == Int, m_number, number);
}

int DmtData::GetBoolean(bool &flag) const
{
    return Copy(m_type == Bool, m_flag, flag);
}

int DmtData::GetBinary(DMVector<unsigned char> &bytes) const
{
    return Copy(m_type == Bin, m_bytes, bytes);
}

int DmtData::GetChildNames(DMStringVector &names) const
{
    return Copy(m_type == Node, m_childNames, names);
}
