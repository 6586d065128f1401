/// \file
/// Typed settings: TypedSetting<bool|int|QString>, IntSetting, HashedStringSetting, and the
/// numeric conversion helpers behind their getVal/setVal.
#pragma once

#include <vanta/export.h>
#include <vanta/settings.h>

#include <QString>

#include <cstdint>
#include <utility>
#include <vector>

class QDateTime;

namespace vanta {

/// Numeric views of setting values. A type without a meaningful number reads as 0.0 and ignores
/// numbers written to it.
inline double convertToDouble(double value) { return value; }
/// Returns the new value (the old one is not needed for plain numbers).
inline double convertFromDouble(double /*oldValue*/, double newValue) { return newValue; }
/// Reads as 0.0.
VANTA_EXPORT double convertToDouble(const QString& value);
/// Ignores the number.
VANTA_EXPORT void convertFromDouble(QString& value, double number);
/// Reads as 0.0.
VANTA_EXPORT double convertToDouble(const QDateTime& value);
/// Ignores the number.
VANTA_EXPORT void convertFromDouble(QDateTime& value, double number);
/// Reads as 0.0.
VANTA_EXPORT double convertToDouble(const std::pair<int, int>& value);
/// Ignores the number.
VANTA_EXPORT void convertFromDouble(std::pair<int, int>& value, double number);

/// A setting holding a T (bool, int or QString) with a fixed default and its own stack of values
/// saved by the open save frames. Not thread-safe: settings belong to the main thread.
template <class T>
class VANTA_EXPORT TypedSetting : public Setting {
public:
    /// Value and default start as defaultValue; the flags are stored for client code.
    TypedSetting(SettingGroup& group, const QString& name, const T& defaultValue,
                 bool firstFlag = true, bool secondFlag = false)
        : Setting(group, name, firstFlag, secondFlag), mValue(defaultValue), mDefault(defaultValue) {}
    ~TypedSetting() override;

    /// The one way to change the value. Always stamps the modifier; when the value really
    /// changes it is recorded in the innermost open save frame (if any), assigned, and reported
    /// to the observers. Allocates nothing when no frame is open.
    void set(T value);

    /// The current value.
    const T& getValue() const { return mValue; }
    /// The default given at construction.
    const T& getDefault() const { return mDefault; }
    /// Number of values saved by open frames.
    int getSavedCount() const { return int(mSaved.size()); }

    /// Sets the value from its text form, through set().
    void fromString(const QString& text) override;
    /// The value in text form.
    QString toString() const override;
    /// The value as a number.
    double getVal() const override;
    /// Sets the value from a number, through set().
    void setVal(double value) override;
    /// Type code: 0 bool, 1 int, 4 string.
    int getType() const override;
    /// Saves the current value on this setting's stack.
    void pushSetting() override;
    /// Restores the most recently saved value silently; false when nothing is saved.
    bool popSetting() override;

private:
    T mValue;
    T mDefault;
    std::vector<T> mSaved;  ///< the most recently saved value is at the back
};

/// Inline so callers skip the call into the library for the common, unobserved change.
template <class T>
inline void TypedSetting<T>::set(T value) {
    stampModifier();
    if (value == mValue)
        return;
    saveForRestore();
    mValue = std::move(value);
    notifyChanged();
}

/// \cond
/// The per-type bodies behind the members above, defined in typedsetting.cpp.
template <> void TypedSetting<bool>::fromString(const QString& text);
template <> QString TypedSetting<bool>::toString() const;
template <> double TypedSetting<bool>::getVal() const;
template <> void TypedSetting<bool>::setVal(double value);
template <> int TypedSetting<bool>::getType() const;
template <> void TypedSetting<int>::fromString(const QString& text);
template <> QString TypedSetting<int>::toString() const;
template <> double TypedSetting<int>::getVal() const;
template <> void TypedSetting<int>::setVal(double value);
template <> int TypedSetting<int>::getType() const;
template <> void TypedSetting<QString>::fromString(const QString& text);
template <> QString TypedSetting<QString>::toString() const;
template <> double TypedSetting<QString>::getVal() const;
template <> void TypedSetting<QString>::setVal(double value);
template <> int TypedSetting<QString>::getType() const;
/// \endcond

extern template class TypedSetting<bool>;
extern template class TypedSetting<int>;
extern template class TypedSetting<QString>;

/// An integer setting with a class of its own; same behaviour and type code as TypedSetting<int>.
class VANTA_EXPORT IntSetting : public TypedSetting<int> {
public:
    /// A setting of group named name, with defaultValue and the two client flags.
    IntSetting(SettingGroup& group, const QString& name, int defaultValue,
               bool firstFlag = true, bool secondFlag = false);
    ~IntSetting() override;
};

/// A string setting that carries the CRC-32 of its default's UTF-8 bytes, computed once: later
/// changes of the value do not update it.
class VANTA_EXPORT HashedStringSetting : public TypedSetting<QString> {
public:
    /// A setting of group named name, with defaultValue and the two client flags.
    HashedStringSetting(SettingGroup& group, const QString& name, const QString& defaultValue,
                        bool firstFlag = true, bool secondFlag = false);
    ~HashedStringSetting() override;

    /// CRC-32 of the default value's UTF-8 bytes.
    uint32_t getHash() const { return mHash; }
    int getType() const override;

private:
    uint32_t mHash;
};

}  // namespace vanta
