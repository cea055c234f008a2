// SPDX-License-Identifier: MIT
#include "Tracks/QMXAudioProcessingRangeInfo.h"

#include "Foundation/Archives/Number.h"
#include "Foundation/Memory.h"
#include "Foundation/Text/Format.h"
#include "Foundation/Text/Log.h"

#include <typeinfo>
#include <utility>

constinit const std::string_view QMXProcessName = "QMXProcessName";
constinit const std::string_view QMXProcessingStart = "QMXProcessingStart";
constinit const std::string_view QMXProcessingEnd = "QMXProcessingEnd";
constinit const std::string_view QMXProcessingSettings = "QMXProcessingSettings";

namespace
{

std::shared_ptr<qmx::String> stringObject(const std::optional<std::string>& text)
{
    return text ? std::make_shared<qmx::String>(*text) : nullptr;
}

// The upper half of an archived frame is lost, which is intended.
UInt64 frameFrom(const std::shared_ptr<qmx::Number>& number)
{
    return number ? number->unsignedIntValue() : 0;
}

void addAll(qmx::Dictionary& settings, const qmx::Dictionary& added)
{
    for (const auto& [key, value] : added.entries())
        settings.setObject_forKey(value, key);
}

/// Makes all of a change, or none of it if memory is short.
template <class Change> void change(qmx::Dictionary& settings, Change make)
{
    const bool isMade = qmx::withinMemory([&] {
        qmx::Dictionary changed;
        addAll(changed, settings);
        make(changed);
        settings.swap(changed);
    });
    if (!isMade)
        qmx::Log("QMXAudioProcessingRangeInfo: not enough memory for settings");
}

} // namespace

std::shared_ptr<QMXAudioProcessingRangeInfo>
QMXAudioProcessingRangeInfo::initWithProcessName(std::optional<std::string> processName)
{
    return qmx::withinMemory(std::shared_ptr<QMXAudioProcessingRangeInfo>(), [&] {
        auto range = std::make_shared<QMXAudioProcessingRangeInfo>();
        range->_processName = std::move(processName);
        return range;
    });
}

std::shared_ptr<QMXAudioProcessingRangeInfo>
QMXAudioProcessingRangeInfo::initWithProcessNameAndRange_processingStartFrame_processingEndFrame(
    std::optional<std::string> processName, UInt64 startFrame, UInt64 endFrame)
{
    auto range = initWithProcessName(std::move(processName));
    if (!range)
        return nullptr;
    range->_processIn = startFrame;
    range->_processOut = endFrame;
    return range;
}

std::shared_ptr<QMXAudioProcessingRangeInfo> QMXAudioProcessingRangeInfo::initWithCoder(qmx::Decoder& decoder)
{
    const bool keyed = decoder.allowsKeyedCoding();
    const auto object = [&](std::string_view key) {
        return keyed ? decoder.decodeObjectForKey(key) : decoder.decodeObject();
    };
    const auto number = [&](std::string_view key) {
        return keyed ? decoder.decodeNumberForKey(key) : std::dynamic_pointer_cast<qmx::Number>(decoder.decodeObject());
    };
    auto range = std::make_shared<QMXAudioProcessingRangeInfo>();
    if (const auto name = std::dynamic_pointer_cast<qmx::String>(object(QMXProcessName)))
        range->_processName = name->text();
    range->_processIn = frameFrom(number(QMXProcessingStart));
    range->_processOut = frameFrom(number(QMXProcessingEnd));
    if (auto settings = std::dynamic_pointer_cast<qmx::Dictionary>(object(QMXProcessingSettings)))
        range->_settings = std::move(settings);
    return range;
}

void QMXAudioProcessingRangeInfo::encodeWithCoder(qmx::Coder& coder) const
{
    const auto encode = [&](const std::shared_ptr<const qmx::Object>& object, std::string_view key) {
        if (coder.allowsKeyedCoding())
            coder.encodeObject_forKey(object, key);
        else
            coder.encodeObject(object);
    };
    encode(stringObject(_processName), QMXProcessName);
    encode(qmx::Number::withUnsignedLongLong(_processIn), QMXProcessingStart);
    encode(qmx::Number::withUnsignedLongLong(_processOut), QMXProcessingEnd);
    encode(_settings, QMXProcessingSettings);
}

std::vector<std::string> QMXAudioProcessingRangeInfo::archiveClassNames() const
{
    return {"QMXAudioProcessingRangeInfo", "NSObject"};
}

void QMXAudioProcessingRangeInfo::setProcessingSettings(const qmx::Dictionary& settings)
{
    if (&settings == _settings.get())
        return;
    change(*_settings, [&](qmx::Dictionary& changed) {
        changed.removeAllObjects();
        addAll(changed, settings);
    });
}

void QMXAudioProcessingRangeInfo::addProcessingSettings(const qmx::Dictionary& settings)
{
    if (&settings == _settings.get())
        return;
    change(*_settings, [&](qmx::Dictionary& changed) { addAll(changed, settings); });
}

void QMXAudioProcessingRangeInfo::addProcessingSettingFloat_value(const std::string& key, Float32 value)
{
    change(*_settings, [&](qmx::Dictionary& changed) { changed.setObject_forKey(qmx::Number::withFloat(value), key); });
}

void QMXAudioProcessingRangeInfo::addProcessingSettingInt_value(const std::string& key, SInt32 value)
{
    change(*_settings, [&](qmx::Dictionary& changed) { changed.setObject_forKey(qmx::Number::withInt(value), key); });
}

bool QMXAudioProcessingRangeInfo::isEqual(const qmx::Object* other) const
{
    if (!other)
        return false;
    const auto* const range = dynamic_cast<const QMXAudioProcessingRangeInfo*>(other);
    const bool isOfOwnClass =
        range && (typeid(*this) == typeid(QMXAudioProcessingRangeInfo) || typeid(*this) == typeid(*range));
    if (!isOfOwnClass)
        return true; // an object of a foreign class is equal, which is intended
    return _processName == range->_processName && _processIn == range->_processIn && _processOut == range->_processOut;
}

std::string QMXAudioProcessingRangeInfo::description() const
{
    return "QMXAudioProcessingRangeInfo [" + qmx::format("%@:", _processName) + qmx::format(" IN:%qu", _processIn) +
           qmx::format(" OUT:%qu]", _processOut);
}
