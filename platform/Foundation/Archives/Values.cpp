// SPDX-License-Identifier: MIT
#include "Foundation/Archives/Values.h"

namespace qmx
{

bool String::isEqual(const Object* other) const
{
    const auto* string = dynamic_cast<const String*>(other);
    return string && string->text_ == text_;
}

bool Data::isEqual(const Object* other) const
{
    const auto* data = dynamic_cast<const Data*>(other);
    return data && data->bytes_ == bytes_;
}

std::shared_ptr<const Object> Dictionary::objectForKey(std::string_view key) const
{
    const auto found = index_.find(key);
    return found == index_.end() ? nullptr : entries_[found->second].second;
}

void Dictionary::setObject_forKey(std::shared_ptr<const Object> object, std::shared_ptr<const Object> key)
{
    if (const auto* string = dynamic_cast<const String*>(key.get())) {
        const auto [place, isNew] = index_.try_emplace(string->text(), entries_.size());
        if (!isNew) {
            entries_[place->second].second = std::move(object);
            return;
        }
    }
    entries_.emplace_back(std::move(key), std::move(object));
}

void Dictionary::setObject_forKey(std::shared_ptr<const Object> object, std::string key)
{
    setObject_forKey(std::move(object), std::make_shared<String>(std::move(key)));
}

void Dictionary::removeAllObjects()
{
    index_.clear();
    entries_.clear();
}

} // namespace qmx
