// The engine's typed node value.
#pragma once

#include "dmstring.h"

/// One node value: a type code and the value of that type. Copies are deep.
class DMNATIVE_API DmtData {
public:
    /// Codes as the engine stores them; a leaf of this project is a String, an Int or a Bool.
    enum Type : signed char { Null = 0, String = 1, Int = 2, Bool = 3, Bin = 4, Node = 5 };

    DmtData() = default;
    /// A null text gives a string value without text, which reads as "".
    explicit DmtData(const char *text);
    explicit DmtData(int number);
    explicit DmtData(bool flag);
    explicit DmtData(const DMVector<unsigned char> &bytes);
    /// The value of an interior node: its child names.
    explicit DmtData(const DMStringVector &childNames);

    signed char GetType() const { return m_type; }

    /// Each getter stores the value and returns 0 when the value has its type; otherwise it returns
    /// DMT_UNSUPPORTED_FORMAT and leaves the output as it was. Nothing is converted.
    int GetString(DMString &text) const;
    int GetInt(int &number) const;
    int GetBoolean(bool &flag) const;
    int GetBinary(DMVector<unsigned char> &bytes) const;
    int GetChildNames(DMStringVector &names) const;

private:
    signed char m_type = Null;
    bool m_flag = false;
    int m_number = 0;
    DMString m_text;
    DMVector<unsigned char> m_bytes;
    DMStringVector m_childNames;
};

/// Values of a node's leaf children by child name.
using DmtChildValuesMap = DMMap<DMString, DmtData>;
