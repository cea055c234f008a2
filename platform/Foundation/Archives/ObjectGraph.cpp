// SPDX-License-Identifier: MIT
// An entry becomes an object at its first use and stays that object. Because shared entries could multiply, everything
// that is made is charged to one allowance.
#include "Foundation/Archives/ObjectGraph.h"

#include "Foundation/Archives/ArchiveClasses.h"
#include "Foundation/Archives/ImageSearch.h"
#include "Foundation/Archives/OpaqueObject.h"

#include <algorithm>
#include <map>
#include <utility>

namespace qmx
{

namespace
{

using Fields = PropertyListDictionary;

constexpr std::size_t depthLimit = 64;
constexpr std::size_t allowance = std::size_t{64} << 20; // bytes of objects

class GraphReader
{
public:
    explicit GraphReader(const ObjectGraph& graph) : graph_(graph), slots_(graph.table->size()) {}

    bool isKeyed() const { return graph_.isKeyed; }
    bool hasFailed() const { return hasFailed_; }
    std::shared_ptr<Object> object(std::uint64_t index);
    /// The object of a reference, or an object for a value stored in place.
    std::shared_ptr<Object> objectOf(const PropertyListValue* value);
    /// The picture that `object` is or whose data it is.
    std::shared_ptr<Image> image(const std::shared_ptr<Object>& object);

private:
    struct Slot {
        std::shared_ptr<Object> object;
        std::size_t height = 0; // objects below and including this one
        bool isOpen = false;    // its contents are being decoded
        bool isMade = false;
    };
    struct Class {
        std::string name;
        std::function<std::shared_ptr<Object>(const Fields&)> maker; // returns null for contents that do not fit
        bool isImage = false;
        bool isRegistered = false;
    };

    std::shared_ptr<Object> make(std::uint64_t index);
    std::shared_ptr<Object> makeFromClass(std::uint64_t index, const Fields& fields);
    std::shared_ptr<Object> makePlain(const PropertyListValue& value);
    std::shared_ptr<Object> makeImage(std::uint64_t index);
    std::shared_ptr<Object> makeArray(const Fields& fields);
    std::shared_ptr<Object> makeDictionary(const Fields& fields);
    std::shared_ptr<Object> makeOpaque(std::uint64_t index, std::string className);
    const Class& classAt(std::uint64_t index);
    Class describeClass(const Fields& entry);
    bool chooseMaker(Class& described, const std::string& name);
    std::nullptr_t fail();
    bool spend(std::size_t bytes);
    template <class T, class... Arguments> std::shared_ptr<Object> charged(std::size_t bytes, Arguments&&... arguments);

    const ObjectGraph& graph_;
    std::vector<Slot> slots_;
    std::map<std::uint64_t, Class> classes_;
    std::map<const Object*, std::shared_ptr<Image>> pictures_; // by their data objects
    std::size_t depth_ = 0;
    std::size_t height_ = 0; // of the tallest object made since it was last set to 0
    std::size_t spent_ = 0;
    bool hasFailed_ = false;
};

class EntryDecoder : public Decoder
{
public:
    EntryDecoder(GraphReader& reader, const Fields& fields) : reader_(reader), fields_(fields) {}

    bool allowsKeyedCoding() const override { return reader_.isKeyed(); }
    bool containsValueForKey(std::string_view key) const override { return fields_.find(archiveKey(key)) != nullptr; }
    std::shared_ptr<Object> decodeObjectForKey(std::string_view key) override
    {
        const PropertyListValue* value = fields_.find(archiveKey(key));
        return value && value->as<PropertyListUID>() ? reader_.objectOf(value) : nullptr;
    }
    std::shared_ptr<Object> decodeObject() override
    {
        return reader_.objectOf(fields_.find(archiveSequenceKey(position_++)));
    }
    std::shared_ptr<Number> decodeNumberForKey(std::string_view key) override
    {
        return std::dynamic_pointer_cast<Number>(reader_.objectOf(fields_.find(archiveKey(key))));
    }
    std::shared_ptr<Image> decodeImageForKey(std::string_view key) override
    {
        return reader_.image(decodeObjectForKey(key));
    }

private:
    GraphReader& reader_;
    const Fields& fields_;
    std::size_t position_ = 0;
};

std::nullptr_t GraphReader::fail()
{
    hasFailed_ = true;
    return nullptr;
}

bool GraphReader::spend(std::size_t bytes)
{
    spent_ += std::min(bytes, allowance);
    if (spent_ > allowance)
        fail();
    return !hasFailed_;
}

template <class T, class... Arguments>
std::shared_ptr<Object> GraphReader::charged(std::size_t bytes, Arguments&&... arguments)
{
    if (!spend(bytes + sizeof(T)))
        return nullptr;
    return std::make_shared<T>(std::forward<Arguments>(arguments)...);
}

std::shared_ptr<Object> GraphReader::object(std::uint64_t index)
{
    if (hasFailed_ || index == 0)
        return nullptr;
    if (index >= slots_.size())
        return fail();
    Slot& slot = slots_[static_cast<std::size_t>(index)];
    if (slot.isOpen || depth_ == depthLimit)
        return fail();
    if (!slot.isMade) {
        const std::size_t tallest = std::exchange(height_, 0);
        slot.isOpen = true;
        ++depth_;
        slot.object = make(index);
        --depth_;
        slot.isOpen = false;
        slot.isMade = true;
        slot.height = height_ + 1;
        height_ = tallest;
    }
    height_ = std::max(height_, slot.height);
    if (depth_ + slot.height > depthLimit)
        fail();
    return hasFailed_ ? nullptr : slot.object;
}

std::shared_ptr<Object> GraphReader::objectOf(const PropertyListValue* value)
{
    if (!value)
        return nullptr;
    const auto* uid = value->as<PropertyListUID>();
    return uid ? object(uid->index) : makePlain(*value);
}

std::shared_ptr<Object> GraphReader::make(std::uint64_t index)
{
    const PropertyListValue& entry = *(*graph_.table)[static_cast<std::size_t>(index)];
    if (isArchivedNil(entry))
        return nullptr;
    if (const auto* fields = entry.as<Fields>())
        return makeFromClass(index, *fields);
    if (auto plain = makePlain(entry); plain || hasFailed_)
        return plain;
    return makeOpaque(index, {});
}

std::shared_ptr<Object> GraphReader::makePlain(const PropertyListValue& value)
{
    if (const auto* text = value.as<std::string>())
        return charged<String>(text->size(), *text);
    if (const auto* data = value.as<PropertyListData>())
        return charged<Data>(data->size(), *data);
    if (const auto* boolean = value.as<bool>())
        return charged<Number>(0, *boolean);
    if (const auto* real = value.as<float>())
        return charged<Number>(0, *real);
    if (const auto* real = value.as<double>())
        return charged<Number>(0, *real);
    const auto* integer = value.as<PropertyListInteger>();
    if (!integer)
        return nullptr;
    const auto asSigned = static_cast<SInt64>(integer->bits);
    if (asSigned < 0 && !integer->isNegative)
        return charged<Number>(0, UInt64{integer->bits});
    if (std::in_range<SInt32>(asSigned))
        return charged<Number>(0, static_cast<SInt32>(asSigned));
    return charged<Number>(0, asSigned);
}

std::shared_ptr<Object> GraphReader::makeFromClass(std::uint64_t index, const Fields& fields)
{
    const PropertyListValue* reference = fields.find(archiveClassKey);
    const auto* uid = reference ? reference->as<PropertyListUID>() : nullptr;
    if (!uid)
        return makeOpaque(index, {});
    if (uid->index >= slots_.size())
        return fail();
    const Class& named = classAt(uid->index);
    std::shared_ptr<Object> made;
    if (named.isImage)
        made = makeImage(index);
    else if (named.maker)
        made = named.maker(fields);
    return made || hasFailed_ || named.isRegistered ? made : makeOpaque(index, named.name);
}

std::shared_ptr<Object> GraphReader::makeOpaque(std::uint64_t index, std::string className)
{
    return charged<OpaqueObject>(className.size(), std::move(className), graph_.table, index);
}

std::shared_ptr<Object> GraphReader::makeImage(std::uint64_t index)
{
    std::size_t visits = 0;
    const PropertyListData* bytes = imageBytesWithin(*graph_.table, index, visits);
    if (!spend(visits * sizeof(PropertyListValue)) || !bytes)
        return nullptr;
    return charged<Image>(bytes->size(), *bytes);
}

std::shared_ptr<Object> GraphReader::makeArray(const Fields& fields)
{
    const PropertyListValue* value = fields.find(archiveElementsKey);
    const auto* references = value ? value->as<PropertyListArray>() : nullptr;
    if (!references || !spend(references->size() * sizeof(Array::Elements::value_type)))
        return nullptr;
    Array::Elements elements;
    elements.reserve(references->size());
    for (const PropertyListRef& reference : *references)
        elements.push_back(objectOf(reference.get()));
    return charged<Array>(0, std::move(elements));
}

std::shared_ptr<Object> GraphReader::makeDictionary(const Fields& fields)
{
    const PropertyListValue* keyList = fields.find(archiveKeysKey);
    const PropertyListValue* valueList = fields.find(archiveElementsKey);
    const auto* keys = keyList ? keyList->as<PropertyListArray>() : nullptr;
    const auto* values = valueList ? valueList->as<PropertyListArray>() : nullptr;
    if (!keys || !values || keys->size() != values->size() || !spend(keys->size() * 2 * sizeof(Dictionary::Entry)))
        return nullptr;
    auto dictionary = std::make_shared<Dictionary>();
    for (std::size_t i = 0; i < keys->size() && !hasFailed_; ++i) {
        auto key = objectOf((*keys)[i].get());
        dictionary->setObject_forKey(objectOf((*values)[i].get()), std::move(key));
    }
    return dictionary;
}

const GraphReader::Class& GraphReader::classAt(std::uint64_t index)
{
    const auto [place, isNew] = classes_.try_emplace(index);
    const auto* entry = (*graph_.table)[static_cast<std::size_t>(index)]->as<Fields>();
    if (isNew && entry)
        place->second = describeClass(*entry);
    return place->second;
}

GraphReader::Class GraphReader::describeClass(const Fields& entry)
{
    Class described;
    const auto namesIn = [&](std::string_view key) {
        std::vector<const std::string*> names;
        const PropertyListValue* value = entry.find(key);
        const auto* list = value ? value->as<PropertyListArray>() : nullptr;
        if (!list || !spend(list->size() * sizeof(Class)))
            return names;
        for (const PropertyListRef& element : *list)
            if (const auto* name = element->as<std::string>())
                names.push_back(name);
        return names;
    };
    const PropertyListValue* value = entry.find(archiveClassNameKey);
    if (const auto* name = value ? value->as<std::string>() : nullptr; name && spend(name->size()))
        described.name = *name;
    if (chooseMaker(described, described.name))
        return described;
    // an image class counts anywhere in the chain; other superclasses do not: a subclass may have other contents
    const auto chain = namesIn(archiveClassChainKey);
    described.isImage = isImageClass(described.name) ||
                        std::any_of(chain.begin(), chain.end(), [](const auto* name) { return isImageClass(*name); });
    for (const std::string* hint : namesIn("$classhints"))
        if (chooseMaker(described, *hint))
            break;
    return described;
}

bool GraphReader::chooseMaker(Class& described, const std::string& name)
{
    if (name == "NSString" || name == "NSMutableString") {
        described.maker = [this](const Fields& fields) {
            return std::dynamic_pointer_cast<String>(objectOf(fields.find("NS.string")));
        };
    } else if (name == "NSData" || name == "NSMutableData") {
        described.maker = [this](const Fields& fields) {
            return std::dynamic_pointer_cast<Data>(objectOf(fields.find("NS.data")));
        };
    } else if (name == "NSArray" || name == "NSMutableArray") {
        described.maker = [this](const Fields& fields) { return makeArray(fields); };
    } else if (name == "NSDictionary" || name == "NSMutableDictionary") {
        described.maker = [this](const Fields& fields) { return makeDictionary(fields); };
    } else if (ArchiveClassMaker maker = archiveClassMaker(name)) {
        described.isRegistered = true;
        described.maker = [this, maker = std::move(maker)](const Fields& fields) {
            EntryDecoder decoder(*this, fields);
            return maker(decoder);
        };
    }
    return described.maker != nullptr;
}

std::shared_ptr<Image> GraphReader::image(const std::shared_ptr<Object>& object)
{
    if (auto picture = std::dynamic_pointer_cast<Image>(object))
        return picture;
    const auto* data = dynamic_cast<const Data*>(object.get());
    if (!data)
        return nullptr;
    std::shared_ptr<Image>& picture = pictures_[data];
    if (!picture && spend(data->bytes().size()))
        picture = Image::initWithData(data->bytes());
    return picture;
}

} // namespace

std::shared_ptr<Object> makeObjects(const ObjectGraph& graph, ArchiveError* error)
{
    GraphReader reader(graph);
    auto root = reader.object(graph.root);
    if (error)
        *error = reader.hasFailed() ? ArchiveError::inconsistent : ArchiveError::none;
    return reader.hasFailed() ? nullptr : root;
}

} // namespace qmx
