// SPDX-License-Identifier: MIT
#include "Foundation/Archives/PropertyList.h"

namespace qmx
{

const PropertyListValue* PropertyListDictionary::find(std::string_view key) const
{
    const auto found = index_.find(key);
    return found == index_.end() ? nullptr : entries_[found->second].second.get();
}

void PropertyListDictionary::add(PropertyListRef key, PropertyListRef value)
{
    if (index_.try_emplace(*key->as<std::string>(), entries_.size()).second)
        entries_.emplace_back(std::move(key), std::move(value));
}

void PropertyListDictionary::add(std::string key, PropertyListValue value)
{
    add(std::make_shared<PropertyListValue>(std::move(key)), std::make_shared<PropertyListValue>(std::move(value)));
}

} // namespace qmx
