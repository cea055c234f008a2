// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/Foundation/Export.h>

#include <string>

namespace qmx
{

/// The root of every object of the library.
class QMX_EXPORT Object
{
public:
    Object() = default;
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;
    virtual ~Object();

    /// A text for people and logs; the class name and address unless a class says more. Any thread.
    virtual std::string description() const;

    /// Whether `other` stands for the same value; identity unless a class says otherwise. Null is equal to nothing.
    virtual bool isEqual(const Object* other) const;
};

} // namespace qmx
