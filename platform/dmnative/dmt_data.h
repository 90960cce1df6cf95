/// @file
/// The engine's typed node value.
#pragma once

#include "dmstring.h"

/// One node value: a type code and the value of that type. Copies are deep.
class DMNATIVE_API DmtData {
public:
    /// Codes as the engine stores them; a leaf of this project is a String, an Int or a Bool.
    enum Type : signed char {
        Null = 0,   ///< no value
        String = 1, ///< text of bytes, UTF-8 by convention
        Int = 2,    ///< signed number of 32 bits
        Bool = 3,   ///< true or false
        Bin = 4,    ///< bytes
        Node = 5,   ///< an interior node: the names of its children
    };

    /// The value Null.
    DmtData() = default;
    /// A null text gives a string value without text, which reads as "".
    explicit DmtData(const char *text);
    /// An Int.
    explicit DmtData(int number);
    /// A Bool.
    explicit DmtData(bool flag);
    /// A Bin, with a copy of the bytes.
    explicit DmtData(const DMVector<unsigned char> &bytes);
    /// The value of an interior node: its child names.
    explicit DmtData(const DMStringVector &childNames);

    /// The type, one of DmtData::Type.
    signed char GetType() const { return m_type; }

    /// Stores a String and returns 0; for a value of another type it returns DMT_UNSUPPORTED_FORMAT
    /// and leaves the output as it was. Nothing is converted. One without text gives "".
    int GetString(DMString &text) const;
    /// As GetString, of an Int.
    int GetInt(int &number) const;
    /// As GetString, of a Bool.
    int GetBoolean(bool &flag) const;
    /// As GetString, of a Bin: a copy of the bytes.
    int GetBinary(DMVector<unsigned char> &bytes) const;
    /// As GetString, of a Node: a copy of the names.
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
