// SPDX-License-Identifier: MIT
// A class that takes anything from a decoder and gives it to the next coder.
#pragma once

#include "Foundation/KeyedArchiver.h"
#include "Foundation/KeyedUnarchiver.h"

#include <cstdlib>

class AnyNote : public qmx::Object, public qmx::Coding
{
public:
    static std::shared_ptr<qmx::Object> decode(qmx::Decoder& decoder)
    {
        auto note = std::make_shared<AnyNote>();
        note->name_ = decoder.decodeStringForKey("name");
        note->start_ = decoder.decodeNumberForKey("start");
        note->other_ = decoder.decodeObjectForKey("gone");
        note->picture_ = decoder.decodeImageForKey("picture");
        note->next_ = decoder.decodeObject();
        return note;
    }
    void encodeWithCoder(qmx::Coder& coder) const override
    {
        coder.encodeString_forKey(name_, "name");
        coder.encodeObject_forKey(start_, "start");
        coder.encodeObject_forKey(other_, "gone");
        coder.encodeObject_forKey(picture_, "picture");
        coder.encodeObject(next_);
    }
    std::vector<std::string> archiveClassNames() const override { return {"Note", "NSObject"}; }

private:
    std::optional<std::string> name_;
    std::shared_ptr<qmx::Object> start_, other_, picture_, next_;
};

/// Aborts when `object` cannot be archived and read again.
inline void requireRoundTrip(const std::shared_ptr<qmx::Object>& object)
{
    const auto archive = qmx::KeyedArchiver::archivedDataWithRootObject(object);
    qmx::ArchiveError error{};
    const auto again = qmx::KeyedUnarchiver::unarchiveObjectWithData(archive, &error);
    if (archive.empty() || error != qmx::ArchiveError::none || !object != !again)
        std::abort();
}
