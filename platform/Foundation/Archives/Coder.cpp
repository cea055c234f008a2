// SPDX-License-Identifier: MIT
#include "Foundation/Archives/Coder.h"

#include "Foundation/Archives/ArchiveClasses.h"

#include <map>
#include <mutex>
#include <utility>

namespace qmx
{

namespace
{

struct Registry {
    std::mutex mutex;
    std::map<std::string, ArchiveClassMaker, std::less<>> makers;
};

Registry& registry()
{
    static auto* const classes = new Registry; // outlives every user at exit
    return *classes;
}

} // namespace

Coder::~Coder() = default;
Coding::~Coding() = default;
Decoder::~Decoder() = default;

void Coder::encodeString_forKey(const std::optional<std::string>& text, std::string_view key)
{
    encodeObject_forKey(text ? std::make_shared<String>(*text) : nullptr, key);
}

std::optional<std::string> Decoder::decodeStringForKey(std::string_view key)
{
    const auto string = std::dynamic_pointer_cast<String>(decodeObjectForKey(key));
    return string ? std::optional(string->text()) : std::nullopt;
}

void registerArchiveClass(const std::string& name, ArchiveClassMaker maker)
{
    Registry& classes = registry();
    const std::scoped_lock lock(classes.mutex);
    classes.makers.insert_or_assign(name, std::move(maker));
}

ArchiveClassMaker archiveClassMaker(std::string_view name)
{
    Registry& classes = registry();
    const std::scoped_lock lock(classes.mutex);
    const auto found = classes.makers.find(name);
    return found == classes.makers.end() ? nullptr : found->second;
}

} // namespace qmx
