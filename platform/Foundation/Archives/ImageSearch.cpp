// SPDX-License-Identifier: MIT
#include "Foundation/Archives/ImageSearch.h"

#include <algorithm>
#include <array>
#include <unordered_set>
#include <vector>

namespace qmx
{

namespace
{

using namespace std::string_view_literals;

bool beginsLikeAnImageFile(const PropertyListData& data)
{
    // TIFF in both byte orders, JPEG, PNG, GIF, JPEG 2000, PDF
    constexpr std::array signatures = {"II*\0"sv, "MM\0*"sv,        "\xFF\xD8\xFF"sv, "\x89PNG"sv,
                                       "GIF8"sv,  "\0\0\0\x0CjP"sv, "%PDF"sv};
    const std::string_view bytes(reinterpret_cast<const char*>(data.data()), data.size());
    return std::any_of(signatures.begin(), signatures.end(), [&](auto start) { return bytes.starts_with(start); });
}

} // namespace

bool isImageClass(std::string_view name)
{
    return name == "NSImage" || name == "NSImageRep" || name == "NSBitmapImageRep" || name == "UIImage";
}

const PropertyListData* imageBytesWithin(const PropertyListArray& table, std::uint64_t index, std::size_t& visits)
{
    std::vector<const PropertyListValue*> found;
    std::unordered_set<const PropertyListValue*> known;
    const auto visit = [&](const PropertyListRef& value) {
        if (known.insert(value.get()).second)
            found.push_back(value.get());
    };
    const PropertyListData* longest = nullptr;
    visit(table[static_cast<std::size_t>(index)]);
    std::size_t next = 0;
    while (next < found.size()) { // grows in the loop
        const PropertyListValue& value = *found[next++];
        if (const auto* uid = value.as<PropertyListUID>(); uid && uid->index < table.size()) {
            visit(table[static_cast<std::size_t>(uid->index)]);
        } else if (const auto* array = value.as<PropertyListArray>()) {
            std::for_each(array->begin(), array->end(), visit);
        } else if (const auto* dictionary = value.as<PropertyListDictionary>()) {
            for (const auto& entry : dictionary->entries())
                visit(entry.second);
        } else if (const auto* data = value.as<PropertyListData>()) {
            if (beginsLikeAnImageFile(*data)) {
                longest = data;
                break;
            }
            if (!longest || data->size() > longest->size())
                longest = data;
        }
    }
    visits += found.size();
    return longest;
}

} // namespace qmx
