// SPDX-License-Identifier: MIT
// Every rule of the grammar is a function, which returns false, null or no value as soon as the bytes contradict it.
// All work is charged by the byte and by the character of a type, so that repeated types and empty elements cannot
// multiply it.
#include "Foundation/Archives/SequentialArchive.h"

#include "Foundation/Archives/ArchiveClasses.h"
#include "Foundation/Text/Unicode.h"

#include <algorithm>
#include <bit>
#include <utility>
#include <variant>

namespace qmx
{

namespace
{

using Bytes = std::span<const std::uint8_t>;
using Text = std::shared_ptr<const std::string>;
using Fields = PropertyListDictionary;

constexpr std::uint8_t streamerVersion = 4;
constexpr std::string_view bigEndianSignature = "typedstream";
constexpr std::string_view littleEndianSignature = "streamtyped";
constexpr std::size_t depthLimit = 64;
constexpr std::size_t stepsPerByte = 64;

enum Tag : std::uint8_t { int16 = 0x81, int32 = 0x82, real = 0x83, fresh = 0x84, nil = 0x85, end = 0x86, int64 = 0x87 };
constexpr std::uint8_t lastTag = 0x91;
constexpr std::int64_t firstReference = -110;

// One class with its superclasses.
struct ClassChain {
    std::vector<std::string> names;
    std::uint64_t entry = 0; // of the class in the object table; 0 for the end of the chain
};
using Class = std::shared_ptr<const ClassChain>;

// The values of an object, in order.
struct Contents {
    std::string types;
    PropertyListArray values;
};

template <class T> PropertyListRef shared(T value)
{
    return std::make_shared<PropertyListValue>(std::move(value));
}

class Parser
{
public:
    explicit Parser(Bytes bytes)
        : bytes_(bytes), steps_(stepsPerByte * bytes.size()), table_{shared(std::string(archiveNil))}
    {
    }

    bool header();
    std::optional<ObjectGraph> root();

private:
    // these share one numbering: a place in the object table, a class, a C string
    using Numbered = std::variant<std::uint64_t, Class, Text>;

    bool step(std::size_t count = 1);
    std::optional<Bytes> take(std::uint64_t size);
    std::optional<std::uint8_t> takeByte();
    bool skipTag(Tag tag);
    std::optional<std::uint64_t> fixed(std::size_t width);
    std::optional<std::uint64_t> integer(bool isSigned);
    std::optional<std::size_t> reference();
    std::optional<Text> sharedText();
    std::optional<Text> cString();
    std::optional<Class> classChain(std::size_t depth);
    std::optional<std::uint64_t> object();
    bool contents(Contents& into);
    bool group(Contents& into);
    PropertyListRef value(std::string_view& types);
    PropertyListRef array(std::string_view& types);
    PropertyListRef structure(std::string_view& types);
    PropertyListRef number(char type);
    PropertyListRef realNumber(bool isDouble);
    PropertyListRef rawByte(char type);
    PropertyListRef text(const std::optional<Text>& content);

    template <class T> const T* numbered();

    Bytes bytes_;
    std::size_t steps_;
    bool isBigEndian_ = false;
    std::size_t depth_ = 0;
    std::vector<Text> texts_;
    std::vector<Numbered> objects_;
    PropertyListArray table_;
};

bool Parser::step(std::size_t count)
{
    const bool mayGoOn = count <= steps_;
    steps_ -= mayGoOn ? count : steps_;
    return mayGoOn;
}

std::optional<Bytes> Parser::take(std::uint64_t size)
{
    if (size > bytes_.size())
        return std::nullopt;
    const Bytes taken = bytes_.first(static_cast<std::size_t>(size));
    bytes_ = bytes_.subspan(taken.size());
    return taken;
}

std::optional<std::uint8_t> Parser::takeByte()
{
    const auto byte = take(1);
    return byte ? std::optional(byte->front()) : std::nullopt;
}

bool Parser::skipTag(Tag tag)
{
    return !bytes_.empty() && bytes_.front() == tag && takeByte();
}

std::optional<std::uint64_t> Parser::fixed(std::size_t width)
{
    const auto bytes = take(width);
    if (!bytes)
        return std::nullopt;
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < width; ++i)
        value = (value << 8) | (*bytes)[isBigEndian_ ? i : width - 1 - i];
    return value;
}

// An integer as 64 bits, two's complement if signed.
std::optional<std::uint64_t> Parser::integer(bool isSigned)
{
    const auto first = takeByte();
    if (!first)
        return std::nullopt;
    if (*first < 0x80 || *first > lastTag)
        return isSigned ? static_cast<std::uint64_t>(static_cast<std::int8_t>(*first)) : *first;
    if (*first != int16 && *first != int32 && *first != int64)
        return std::nullopt;
    const std::size_t width = *first == int16 ? 2 : *first == int32 ? 4 : 8;
    const auto bits = fixed(width);
    if (!bits || !isSigned)
        return bits;
    const auto unused = static_cast<unsigned>(64 - 8 * width);
    return static_cast<std::uint64_t>(static_cast<std::int64_t>(*bits << unused) >> unused);
}

std::optional<std::size_t> Parser::reference()
{
    const auto bits = integer(true);
    if (!bits || static_cast<std::int64_t>(*bits) < firstReference)
        return std::nullopt;
    return static_cast<std::size_t>(*bits - static_cast<std::uint64_t>(firstReference));
}

template <class T> const T* Parser::numbered()
{
    const auto number = reference();
    return number && *number < objects_.size() ? std::get_if<T>(&objects_[*number]) : nullptr;
}

std::optional<Text> Parser::sharedText()
{
    if (skipTag(nil))
        return Text();
    if (skipTag(fresh)) {
        const auto length = integer(false);
        const auto bytes = length ? take(*length) : std::nullopt;
        if (!bytes)
            return std::nullopt;
        texts_.push_back(std::make_shared<std::string>(bytes->begin(), bytes->end()));
        return texts_.back();
    }
    const auto number = reference();
    return number && *number < texts_.size() ? std::optional(texts_[*number]) : std::nullopt;
}

std::optional<Text> Parser::cString()
{
    if (skipTag(nil))
        return Text();
    if (!skipTag(fresh)) {
        const Text* known = numbered<Text>();
        return known ? std::optional(*known) : std::nullopt;
    }
    const std::size_t place = objects_.size();
    objects_.emplace_back(Text());
    auto content = sharedText();
    if (content)
        objects_[place] = *content;
    return content;
}

std::optional<Class> Parser::classChain(std::size_t depth)
{
    if (skipTag(nil))
        return std::make_shared<ClassChain>();
    if (!skipTag(fresh)) {
        const Class* known = numbered<Class>();
        return known && *known ? std::optional(*known) : std::nullopt;
    }
    const std::size_t place = objects_.size();
    objects_.emplace_back(Class());
    const auto name = sharedText();
    const auto version = name && *name ? integer(true) : std::nullopt;
    const auto super = version && depth < depthLimit ? classChain(depth + 1) : std::nullopt;
    if (!super || (*super)->names.size() >= depthLimit || !step((*name)->size()))
        return std::nullopt;
    auto chain = std::make_shared<ClassChain>();
    chain->names.push_back(utf8FromBytes({reinterpret_cast<const std::uint8_t*>((*name)->data()), (*name)->size()}));
    PropertyListArray names{shared(chain->names.front())};
    for (const std::string& inherited : (*super)->names) {
        if (!step(inherited.size()))
            return std::nullopt;
        chain->names.push_back(inherited);
        names.push_back(shared(inherited));
    }
    Fields entry;
    entry.add(std::string(archiveClassNameKey), chain->names.front());
    entry.add(std::string(archiveClassChainKey), std::move(names));
    chain->entry = table_.size();
    table_.push_back(shared(std::move(entry)));
    objects_[place] = Class(chain);
    return chain;
}

bool isOneOf(const std::string& name, std::string_view plain, std::string_view mutableName)
{
    return name == plain || name == mutableName;
}

template <class T> const T* valueAt(const Contents& contents, std::size_t index)
{
    return index < contents.values.size() ? contents.values[index]->as<T>() : nullptr;
}

// The elements after a leading count; null if their number differs from it.
std::optional<PropertyListArray> counted(const Contents& contents, std::uint64_t unit)
{
    const auto* count = valueAt<PropertyListInteger>(contents, 0);
    const std::size_t held = contents.values.empty() ? 0 : contents.values.size() - 1;
    if (!count || held % unit != 0 || count->bits != held / unit)
        return std::nullopt;
    return PropertyListArray(contents.values.begin() + 1, contents.values.end());
}

PropertyListRef numberEntry(const Contents& contents)
{
    if (contents.values.size() != 2 || !valueAt<std::string>(contents, 0))
        return nullptr;
    const auto* integer = valueAt<PropertyListInteger>(contents, 1);
    if (contents.types == "*c" && integer && integer->bits <= 1)
        return shared(integer->bits == 1);
    return contents.values[1];
}

// The object in its form in keyed archives; null if the contents do not fit the class.
PropertyListRef entryOf(const ClassChain& chain, Contents contents)
{
    const std::string& name = chain.names.front();
    Fields fields;
    if (isOneOf(name, "NSString", "NSMutableString")) {
        if (contents.types != "+")
            return nullptr;
        fields.add("NS.string", *contents.values[0]);
    } else if (name == "NSNumber") {
        return numberEntry(contents);
    } else if (isOneOf(name, "NSArray", "NSMutableArray") || isOneOf(name, "NSSet", "NSMutableSet")) {
        auto elements = counted(contents, 1);
        if (!elements)
            return nullptr;
        fields.add(std::string(archiveElementsKey), std::move(*elements));
    } else if (isOneOf(name, "NSDictionary", "NSMutableDictionary")) {
        const auto pairs = counted(contents, 2);
        if (!pairs)
            return nullptr;
        PropertyListArray keys;
        PropertyListArray values;
        for (std::size_t i = 0; i < pairs->size(); ++i)
            (i % 2 == 0 ? keys : values).push_back((*pairs)[i]);
        fields.add(std::string(archiveKeysKey), std::move(keys));
        fields.add(std::string(archiveElementsKey), std::move(values));
    } else if (isOneOf(name, "NSData", "NSMutableData")) {
        if (!valueAt<PropertyListData>(contents, 1))
            return nullptr;
        fields.add("NS.data", *contents.values[1]);
    } else if (name == "NSDate") {
        if (!valueAt<double>(contents, 0))
            return nullptr;
        fields.add("NS.time", *contents.values[0]);
    } else {
        for (std::size_t i = 0; i < contents.values.size(); ++i)
            fields.add(shared(archiveSequenceKey(i)), contents.values[i]);
    }
    fields.add(std::string(archiveClassKey), PropertyListUID{chain.entry});
    return shared(std::move(fields));
}

// Reads an object; returns its place in the table, 0 for nil.
std::optional<std::uint64_t> Parser::object()
{
    if (skipTag(nil))
        return 0;
    if (!skipTag(fresh)) {
        const std::uint64_t* known = numbered<std::uint64_t>();
        return known ? std::optional(*known) : std::nullopt;
    }
    if (depth_ == depthLimit)
        return std::nullopt;
    ++depth_;
    const std::uint64_t place = table_.size();
    table_.push_back(table_.front());
    objects_.emplace_back(place);
    const auto chain = classChain(0);
    Contents held;
    if (!chain || (*chain)->names.empty() || !contents(held))
        return std::nullopt;
    --depth_;
    PropertyListRef entry = entryOf(**chain, std::move(held));
    if (!entry)
        return std::nullopt;
    table_[static_cast<std::size_t>(place)] = std::move(entry);
    return place;
}

bool Parser::contents(Contents& into)
{
    while (!skipTag(end))
        if (!group(into))
            return false;
    return true;
}

bool Parser::group(Contents& into)
{
    const auto types = sharedText();
    if (!types || !*types || (*types)->empty())
        return false;
    into.types +=
        (*types)->substr(0, into.types.size() < 8 ? 8 : 0); // enough to distinguish the contents of the known classes
    for (std::string_view rest = **types; !rest.empty();) {
        into.values.push_back(value(rest));
        if (!into.values.back())
            return false;
    }
    return true;
}

// Reads a value of the first type, which is removed from `types`.
PropertyListRef Parser::value(std::string_view& types)
{
    if (types.empty() || depth_ > depthLimit || !step())
        return nullptr;
    const char type = types.front();
    types.remove_prefix(1);
    switch (type) {
    case '@': {
        const auto place = object();
        return place ? shared(PropertyListUID{*place}) : nullptr;
    }
    case '#': {
        const auto chain = classChain(0);
        return chain ? shared(PropertyListUID{(*chain)->entry}) : nullptr;
    }
    case '*':
        return text(cString());
    case ':':
    case '%':
        return text(sharedText());
    case '+': {
        if (skipTag(nil))
            return shared(PropertyListUID{});
        const auto length = integer(false);
        const auto bytes = length ? take(*length) : std::nullopt;
        return bytes ? shared(utf8FromBytes(*bytes)) : nullptr;
    }
    case 'c':
    case 'C':
    case 'B':
        return rawByte(type);
    case 'f':
    case 'd':
        return realNumber(type == 'd');
    case '[':
    case '{': {
        ++depth_;
        PropertyListRef elements = type == '[' ? array(types) : structure(types);
        --depth_;
        return elements;
    }
    default:
        return number(type);
    }
}

PropertyListRef Parser::text(const std::optional<Text>& content)
{
    if (!content)
        return nullptr;
    if (!*content)
        return shared(PropertyListUID{});
    const std::string& bytes = **content;
    return step(bytes.size())
               ? shared(utf8FromBytes({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()}))
               : nullptr;
}

PropertyListRef Parser::rawByte(char type)
{
    const auto byte = takeByte();
    if (!byte)
        return nullptr;
    if (type == 'B')
        return shared(*byte != 0);
    const auto asSigned = static_cast<std::int8_t>(*byte);
    if (type == 'c')
        return shared(PropertyListInteger{static_cast<std::uint64_t>(asSigned), asSigned < 0});
    return shared(PropertyListInteger{*byte, false});
}

PropertyListRef Parser::number(char type)
{
    const bool isSigned = std::string_view("silq").find(type) != std::string_view::npos;
    if (!isSigned && std::string_view("SILQ").find(type) == std::string_view::npos)
        return nullptr;
    const auto bits = integer(isSigned);
    return bits ? shared(PropertyListInteger{*bits, isSigned && *bits >> 63 == 1}) : nullptr;
}

PropertyListRef Parser::realNumber(bool isDouble)
{
    double value = 0;
    if (skipTag(real)) {
        const auto bits = fixed(isDouble ? 8 : 4);
        if (!bits)
            return nullptr;
        value = isDouble ? std::bit_cast<double>(*bits)
                         : static_cast<double>(std::bit_cast<float>(static_cast<std::uint32_t>(*bits)));
    } else {
        const auto whole = integer(true);
        if (!whole)
            return nullptr;
        value = static_cast<double>(static_cast<std::int64_t>(*whole));
    }
    return isDouble ? shared(value) : shared(static_cast<float>(value));
}

// "[count type]", after the bracket.
PropertyListRef Parser::array(std::string_view& types)
{
    std::uint64_t count = 0;
    while (!types.empty() && types.front() >= '0' && types.front() <= '9' && step()) {
        count = count * 10 + static_cast<std::uint64_t>(types.front() - '0');
        types.remove_prefix(1);
        if (count > bytes_.size())
            return nullptr;
    }
    if (types.starts_with("c]") || types.starts_with("C]")) {
        types.remove_prefix(2);
        const auto raw = take(count);
        return raw ? shared(PropertyListData(raw->begin(), raw->end())) : nullptr;
    }
    const std::string_view elementType = types;
    PropertyListArray elements;
    if (count == 0) {
        const std::size_t skipped = std::min(types.find(']'), types.size());
        if (!step(skipped))
            return nullptr;
        types.remove_prefix(skipped);
    }
    for (std::uint64_t i = 0; i < count; ++i) {
        types = elementType;
        elements.push_back(value(types));
        if (!elements.back())
            return nullptr;
    }
    if (!types.starts_with(']'))
        return nullptr;
    types.remove_prefix(1);
    return shared(std::move(elements));
}

// "{name=types}", after the brace.
PropertyListRef Parser::structure(std::string_view& types)
{
    const std::size_t nameEnd = types.find_first_of("={}[]");
    if (nameEnd == std::string_view::npos || !step(nameEnd))
        return nullptr;
    types.remove_prefix(nameEnd + (types[nameEnd] == '=' ? 1 : 0));
    PropertyListArray members;
    while (!types.empty() && types.front() != '}') {
        members.push_back(value(types));
        if (!members.back())
            return nullptr;
    }
    if (types.empty())
        return nullptr;
    types.remove_prefix(1);
    return shared(std::move(members));
}

bool Parser::header()
{
    if (takeByte() != streamerVersion)
        return false;
    const auto length = integer(false);
    const auto bytes = length ? take(*length) : std::nullopt;
    if (!bytes)
        return false;
    const std::string_view signature(reinterpret_cast<const char*>(bytes->data()), bytes->size());
    isBigEndian_ = signature == bigEndianSignature;
    return (isBigEndian_ || signature == littleEndianSignature) && integer(true);
}

std::optional<ObjectGraph> Parser::root()
{
    Contents top;
    const auto* place = group(top) ? valueAt<PropertyListUID>(top, 0) : nullptr;
    if (!place)
        return std::nullopt;
    return ObjectGraph{std::make_shared<PropertyListArray>(std::move(table_)), place->index, false};
}

} // namespace

std::optional<ObjectGraph> parseSequentialArchive(std::span<const std::uint8_t> data, ArchiveError& error)
{
    Parser parser(data);
    if (!parser.header()) {
        error = ArchiveError::incomprehensible;
        return std::nullopt;
    }
    auto graph = parser.root();
    error = graph ? ArchiveError::none : ArchiveError::inconsistent;
    return graph;
}

} // namespace qmx
