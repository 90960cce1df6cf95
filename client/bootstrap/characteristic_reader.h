// The parameters of a characteristic, each of which is used or told as ignored.
#pragma once

#include "provisioning_plan.h"

namespace client::bootstrap {

class CharacteristicReader {
public:
    /// @param label    what people know the characteristic by
    /// @param ignored  receives what was not asked for, when the reader goes
    CharacteristicReader(const Characteristic &characteristic, QString label,
                         std::vector<IgnoredPart> &ignored);
    ~CharacteristicReader();
    CharacteristicReader(const CharacteristicReader &) = delete;
    CharacteristicReader &operator=(const CharacteristicReader &) = delete;

    const QString &label() const { return m_label; }
    /// What people know a part of this one by.
    QString labelOfPart(const Characteristic &part) const;
    /// What people know a parameter of this one by.
    QString shownName(const QString &parm) const;
    /// The value of the first parameter of that name; none when it is not there or has none.
    std::optional<QString> text(const char *name);
    /// The values of all of that name.
    std::vector<QString> texts(const char *name);
    /// Whether there is a parameter of that name, with or without a value.
    bool flag(const char *name);
    /// The characteristics of a type beneath this one.
    std::vector<const Characteristic *> parts(const char *type);

    /// @param what  the name of a parameter, or what is said of it
    void ignore(const QString &what, const QString &why);
    /// Tells of the characteristic, and of nothing more in it.
    void ignoreWhole(const QString &why);

private:
    void tell(const QString &what, const QString &why);

    const Characteristic &m_characteristic;
    const QString m_label;
    std::vector<IgnoredPart> &m_ignored;
    std::vector<bool> m_isUsed; ///< parms, then parts
};

/// "NAPDEF Office": the type and the first of the names that the characteristic has, unless it is
/// shown as something else.
QString labelOf(const Characteristic &characteristic, std::initializer_list<const char *> names);

/// The first parameter of that name, if it has a value.
std::optional<QString> valueOf(const Characteristic &characteristic, const char *name);

} // namespace client::bootstrap
