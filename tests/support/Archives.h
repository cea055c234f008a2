// SPDX-License-Identifier: MIT
// Archives written by hand, and a class that is archived in them.
#pragma once

#include <QMXCoreAudio/Foundation/Archives/Coder.h>
#include <QMXCoreAudio/Foundation/Archives/PropertyList.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qmx::test
{

/// The bytes of hexadecimal digits; blanks are skipped.
inline std::vector<std::uint8_t> fromHex(std::string_view hex)
{
    std::vector<std::uint8_t> bytes;
    std::string digits;
    for (const char digit : hex) {
        if (digit == ' ' || digit == '\n')
            continue;
        digits += digit;
        if (digits.size() == 2) {
            bytes.push_back(static_cast<std::uint8_t>(std::stoul(digits, nullptr, 16)));
            digits.clear();
        }
    }
    return bytes;
}

template <class T> PropertyListRef shared(T value)
{
    return std::make_shared<PropertyListValue>(std::move(value));
}

inline std::string toHex(std::span<const std::uint8_t> bytes)
{
    std::string hex;
    for (const std::uint8_t byte : bytes) {
        hex += "0123456789abcdef"[byte >> 4];
        hex += "0123456789abcdef"[byte & 0xF];
    }
    return hex;
}

/// Calls `use` with every prefix of `bytes` and with every byte changed in several ways.
template <class Use> void damageEveryByte(std::vector<std::uint8_t> bytes, Use use)
{
    for (std::size_t size = 0; size < bytes.size(); ++size)
        use(std::span<const std::uint8_t>(bytes).first(size));
    for (std::uint8_t& byte : bytes) {
        const std::uint8_t original = byte;
        for (const int change : {0x01, 0x10, 0x80, 0xFF}) {
            byte = static_cast<std::uint8_t>(original ^ change);
            use(std::span<const std::uint8_t>(bytes));
        }
        byte = original;
    }
}

/// An archivable object: a name, a number, a flag, any other object, and a picture.
class Note : public qmx::Object, public qmx::Coding
{
public:
    std::optional<std::string> name;
    std::shared_ptr<qmx::Number> start;
    std::shared_ptr<qmx::Number> flag;
    std::shared_ptr<const qmx::Object> other;
    std::shared_ptr<qmx::Number> inPlace;
    std::shared_ptr<qmx::Image> picture;

    static void registerClass()
    {
        qmx::registerArchiveClass("Note", [](qmx::Decoder& decoder) {
            auto note = std::make_shared<Note>();
            if (decoder.allowsKeyedCoding())
                note->readKeys(decoder);
            else
                note->readSequence(decoder);
            return note;
        });
    }

    void encodeWithCoder(qmx::Coder& coder) const override
    {
        coder.encodeString_forKey(name, "name");
        coder.encodeObject_forKey(start, "start");
        coder.encodeObject_forKey(flag, "flag");
        coder.encodeObject_forKey(other, "gone");
        coder.encodeObject_forKey(picture, "picture");
    }
    std::vector<std::string> archiveClassNames() const override { return {"Note", "NSObject"}; }

private:
    void readKeys(qmx::Decoder& decoder)
    {
        name = decoder.decodeStringForKey("name");
        start = decoder.decodeNumberForKey("start");
        flag = decoder.decodeNumberForKey("flag");
        other = decoder.decodeObjectForKey("gone");
        inPlace = decoder.decodeNumberForKey("n");
        picture = decoder.decodeImageForKey("picture");
    }
    void readSequence(qmx::Decoder& decoder)
    {
        if (const auto text = std::dynamic_pointer_cast<qmx::String>(decoder.decodeObject()))
            name = text->text();
        inPlace = std::dynamic_pointer_cast<qmx::Number>(decoder.decodeObject());
        other = decoder.decodeObject();
        start = std::dynamic_pointer_cast<qmx::Number>(decoder.decodeObject());
        flag = std::dynamic_pointer_cast<qmx::Number>(decoder.decodeObject());
    }
};

inline const std::string keyedNote =
    "62706c6973743030d4010203040506070a582476657273696f6e592461726368697665725424746f7058246f626a65637473"
    "12000186a05f100f4e534b657965644172636869766572d1080954726f6f748001a60b0c191a1b1c55246e756c6cd60d0e0f"
    "101112131415161718546e616d6555737461727454666c616754676f6e65516e5624636c6173738002800380048000100780"
    "05524162140000000000000000800000000000000009d21d1e1f205a24636c6173736e616d655824636c6173736573544e6f"
    "7465a21f21584e534f626a65637408111a24293237494c51535a606d72787d82848b8d8f919395979aabacb1bcc5cacd0000"
    "0000000001010000000000000022000000000000000000000000000000d6";

inline const std::string sequentialNote =
    "040b73747265616d747970656481e803 840140 848484044e6f746500 8484084e534f626a65637400 85"
    "92848484084e53537472696e670194 84012b02416286"
    "92848484084e534e756d6265720084 84074e5356616c75650094 84012a84840171 9a0586"
    "928498999a9a812c0186 92849899848401519b87000000000000008086 92849899848401639c0186 928586";

} // namespace qmx::test
