// SPDX-License-Identifier: MIT
#include "Tracks/QMXTrackAndProcessingInfo.h"

#include "Foundation/Archives/Number.h"
#include "Foundation/Memory.h"
#include "Foundation/Text/Format.h"
#include "Foundation/Text/Log.h"

#include <array>
#include <mutex>

constinit const std::string_view QMXTrackInfos = "QMXTrackInfos";
constinit const std::string_view QMXProcessInfos = "QMXProcessInfos";
constinit const std::string_view QMXHasBeenProcessed = "QMXHasBeenProcessed";

namespace
{

using Others = qmx::Array::Elements;

template <class Element, class Added> void append(std::shared_ptr<std::vector<Element>>& list, const Added& added)
{
    const bool isAdded = qmx::withinMemory([&] { // all of them or none
        const auto longer = list ? list : std::make_shared<std::vector<Element>>();
        const std::size_t count = added.size(); // the list may be appended to itself
        longer->reserve(longer->size() + count);
        for (std::size_t i = 0; i < count; ++i)
            longer->push_back(Element(added[i]));
        list = longer;
    });
    if (!isAdded)
        qmx::Log("QMXTrackAndProcessingInfo: not enough memory to add %u entries", added.size());
}

template <class Element>
std::shared_ptr<qmx::Array> arrayFrom(const std::shared_ptr<std::vector<Element>>& list, const Others& others)
{
    if (!list && others.empty())
        return nullptr;
    auto array = std::make_shared<qmx::Array>();
    if (list)
        for (const Element& element : *list)
            array->addObject(element);
    for (const auto& other : others)
        array->addObject(other);
    return array;
}

/// Sorts the elements of an archived list into those of the wanted class and others. A list of others alone counts as
/// no list: that is how they are archived for a record without one.
template <class Class>
std::shared_ptr<std::vector<std::shared_ptr<Class>>> listFrom(const std::shared_ptr<qmx::Object>& object,
                                                              Others& others)
{
    const auto array = std::dynamic_pointer_cast<qmx::Array>(object);
    if (!array)
        return nullptr;
    auto list = std::make_shared<std::vector<std::shared_ptr<Class>>>();
    for (const auto& element : array->elements()) {
        // decoded objects belong to the decoded record alone, which may change them
        if (auto known = std::const_pointer_cast<Class>(std::dynamic_pointer_cast<const Class>(element)))
            list->push_back(std::move(known));
        else if (element)
            others.push_back(element);
    }
    return list->empty() && !others.empty() ? nullptr : list;
}

} // namespace

std::shared_ptr<QMXTrackAndProcessingInfo> QMXTrackAndProcessingInfo::init()
{
    return qmx::withinMemory(std::shared_ptr<QMXTrackAndProcessingInfo>(),
                             [] { return std::make_shared<QMXTrackAndProcessingInfo>(); });
}

std::shared_ptr<QMXTrackAndProcessingInfo> QMXTrackAndProcessingInfo::initWithCoder(qmx::Decoder& decoder)
{
    const bool keyed = decoder.allowsKeyedCoding();
    const auto object = [&](std::string_view key) {
        return keyed ? decoder.decodeObjectForKey(key) : decoder.decodeObject();
    };
    auto info = std::make_shared<QMXTrackAndProcessingInfo>();
    info->mTrackInfos = listFrom<QMXAudioTrackInfo>(object(QMXTrackInfos), info->otherTrackInfos_);
    info->mProcessingInfos =
        listFrom<QMXAudioProcessingRangeInfo>(object(QMXProcessInfos), info->otherProcessingInfos_);
    const auto flag = keyed ? decoder.decodeNumberForKey(QMXHasBeenProcessed)
                            : std::dynamic_pointer_cast<qmx::Number>(decoder.decodeObject());
    info->mFileHasBeenProcessed = flag && flag->boolValue();
    return info;
}

void QMXTrackAndProcessingInfo::registerArchiveClasses()
{
    static std::once_flag registered;
    std::call_once(registered, [] {
        qmx::registerArchiveClass("QMXAudioTrackInfo", QMXAudioTrackInfo::initWithCoder);
        qmx::registerArchiveClass("QMXAudioProcessingRangeInfo", QMXAudioProcessingRangeInfo::initWithCoder);
        qmx::registerArchiveClass("QMXTrackAndProcessingInfo", initWithCoder);
    });
}

void QMXTrackAndProcessingInfo::encodeWithCoder(qmx::Coder& coder) const
{
    coder.encodeObject_forKey(arrayFrom(mTrackInfos, otherTrackInfos_), QMXTrackInfos);
    coder.encodeObject_forKey(arrayFrom(mProcessingInfos, otherProcessingInfos_), QMXProcessInfos);
    coder.encodeObject_forKey(qmx::Number::withBool(mFileHasBeenProcessed), QMXHasBeenProcessed);
}

std::vector<std::string> QMXTrackAndProcessingInfo::archiveClassNames() const
{
    return {"QMXTrackAndProcessingInfo", "NSObject"};
}

void QMXTrackAndProcessingInfo::addTrackInfo(std::shared_ptr<QMXAudioTrackInfo> track)
{
    append(mTrackInfos, std::array{std::move(track)});
}

void QMXTrackAndProcessingInfo::addTrackInfoForAllTracks(const TrackList& tracks)
{
    append(mTrackInfos, tracks);
}

void QMXTrackAndProcessingInfo::clearTrackInfos()
{
    mTrackInfos = nullptr;
}

void QMXTrackAndProcessingInfo::addAudioProcessingInfo(std::shared_ptr<QMXAudioProcessingRangeInfo> range)
{
    append(mProcessingInfos, std::array{std::move(range)});
}

void QMXTrackAndProcessingInfo::addAudioProcessingForAllTracks(const ProcessingList& ranges)
{
    append(mProcessingInfos, ranges);
}

void QMXTrackAndProcessingInfo::clearProcessingInfos()
{
    mProcessingInfos = nullptr;
}

// The tracks only, which is intended.
std::string QMXTrackAndProcessingInfo::description() const
{
    if (!mTrackInfos)
        return qmx::format("QMXTrackAndProcessingInfo: %@", std::optional<std::string>());
    std::string tracks = "(";
    for (const auto& track : *mTrackInfos)
        tracks += qmx::format(tracks.size() == 1 ? "\n    %@" : ",\n    %@", track);
    return qmx::format("QMXTrackAndProcessingInfo: %@", tracks + "\n)");
}
