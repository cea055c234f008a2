// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/Object.h>

#include <memory>
#include <string>
#include <variant>

namespace qmx
{

/// A number that keeps the type it was made from. Immutable. The readers never fail: an integer is cut to its low bits;
/// a real number first to its integer part, where NaN becomes 0 and values beyond 64-bit integers saturate.
class QMX_EXPORT Number : public Object
{
public:
    /// bool, SInt32, UInt32, SInt64, UInt64, 32-bit and 64-bit real.
    using Value = std::variant<bool, SInt32, UInt32, SInt64, UInt64, float, double>;

    explicit Number(Value value) : value_(value) {}

    static std::shared_ptr<Number> withBool(bool value);
    static std::shared_ptr<Number> withInt(SInt32 value);
    static std::shared_ptr<Number> withUnsignedInt(UInt32 value);
    static std::shared_ptr<Number> withLongLong(SInt64 value);
    static std::shared_ptr<Number> withUnsignedLongLong(UInt64 value);
    static std::shared_ptr<Number> withFloat(float value);
    static std::shared_ptr<Number> withDouble(double value);

    /// The number with its type.
    const Value& value() const { return value_; }

    /// Whether the number differs from 0.
    bool boolValue() const;
    SInt32 intValue() const;
    UInt32 unsignedIntValue() const;
    SInt64 longLongValue() const;
    UInt64 unsignedLongLongValue() const;
    float floatValue() const;
    double doubleValue() const;

    /// The number in decimal digits; a boolean is 1 or 0.
    std::string description() const override;
    /// A number of the same value is equal, whatever its type.
    bool isEqual(const Object* other) const override;

private:
    Value value_;
};

} // namespace qmx
