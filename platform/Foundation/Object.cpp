// SPDX-License-Identifier: MIT
#include "Foundation/Object.h"

#include "Foundation/Text/Format.h"

#include <cxxabi.h>

#include <cstdlib>
#include <typeinfo>

namespace qmx
{

Object::~Object() = default;

std::string Object::description() const
{
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> name(
        abi::__cxa_demangle(typeid(*this).name(), nullptr, nullptr, &status), &std::free);
    return format("<%s: 0x%x>", name ? name.get() : typeid(*this).name(), static_cast<const void*>(this));
}

bool Object::isEqual(const Object* other) const
{
    return this == other;
}

} // namespace qmx
