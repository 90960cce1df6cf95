#include "dmnative/dmt_data.h"

#include "dmnative/dmt_status.h"

DmtData::DmtData(const char *text) : m_type(String), m_text(text) {}

DmtData::DmtData(int number) : m_type(Int), m_number(number) {}

DmtData::DmtData(bool flag) : m_type(Bool), m_flag(flag) {}

DmtData::DmtData(const DMVector<unsigned char> &bytes) : m_type(Bin), m_bytes(bytes) {}

DmtData::DmtData(const DMStringVector &childNames) : m_type(Node), m_childNames(childNames) {}

int DmtData::GetString(DMString &text) const
{
    if (m_type != String)
        return DMT_UNSUPPORTED_FORMAT;
    text = DMString(m_text.text());
    return DMT_OK;
}

int DmtData::GetInt(int &number) const
{
    if (m_type != Int)
        return DMT_UNSUPPORTED_FORMAT;
    number = m_number;
    return DMT_OK;
}

int DmtData::GetBoolean(bool &flag) const
{
    if (m_type != Bool)
        return DMT_UNSUPPORTED_FORMAT;
    flag = m_flag;
    return DMT_OK;
}

int DmtData::GetBinary(DMVector<unsigned char> &bytes) const
{
    if (m_type != Bin)
        return DMT_UNSUPPORTED_FORMAT;
    bytes = m_bytes;
    return DMT_OK;
}

int DmtData::GetChildNames(DMStringVector &names) const
{
    if (m_type != Node)
        return DMT_UNSUPPORTED_FORMAT;
    names = m_childNames;
    return DMT_OK;
}
