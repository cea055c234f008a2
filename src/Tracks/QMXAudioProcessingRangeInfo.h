// SPDX-License-Identifier: MIT
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/MacTypes.h>
#include <QMXCoreAudio/Foundation/Archives/Coder.h>
#include <QMXCoreAudio/Foundation/Archives/Values.h>
#include <QMXCoreAudio/Foundation/Export.h>
#include <QMXCoreAudio/Foundation/Object.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// Keys under which the fields are archived.
QMX_EXPORT extern const std::string_view QMXProcessName;
QMX_EXPORT extern const std::string_view QMXProcessingStart;
QMX_EXPORT extern const std::string_view QMXProcessingEnd;
QMX_EXPORT extern const std::string_view QMXProcessingSettings;

/// A process, named by the application, that was applied to a range of an audio file's frames, with its settings. One
/// thread at a time per object.
class QMX_EXPORT QMXAudioProcessingRangeInfo : public qmx::Object, public qmx::Coding
{
public:
    /// The range is [0, 0), the settings are empty.
    static std::shared_ptr<QMXAudioProcessingRangeInfo> initWithProcessName(std::optional<std::string> processName);
    /// The range is [`startFrame`, `endFrame`).
    static std::shared_ptr<QMXAudioProcessingRangeInfo>
    initWithProcessNameAndRange_processingStartFrame_processingEndFrame(std::optional<std::string> processName,
                                                                        UInt64 startFrame, UInt64 endFrame);
    /// A range from an archive. Only the lower 32 bits of its frames come back.
    static std::shared_ptr<QMXAudioProcessingRangeInfo> initWithCoder(qmx::Decoder& decoder);

    const std::optional<std::string>& processName() const { return _processName; }
    /// The first frame processed.
    UInt64 processingStartFrame() const { return _processIn; }
    void setProcessingStartFrame(UInt64 frame) { _processIn = frame; }
    /// The frame past the last one processed.
    UInt64 processingEndFrame() const { return _processOut; }
    void setProcessingEndFrame(UInt64 frame) { _processOut = frame; }

    /// The settings themselves, not a copy: number objects under their names. Never null.
    const std::shared_ptr<qmx::Dictionary>& processingSettings() const { return _settings; }
    /// Replaces all settings by copies of the given entries.
    void setProcessingSettings(const qmx::Dictionary& settings);
    /// Adds the given entries; existing ones of the same names are replaced.
    void addProcessingSettings(const qmx::Dictionary& settings);
    void addProcessingSettingFloat_value(const std::string& key, Float32 value);
    void addProcessingSettingInt_value(const std::string& key, SInt32 value);

    /// Ranges with the same name, start and end are equal, whatever their settings. Any object of another class also
    /// compares equal, as intended; if this object is of a derived class, so does any object that is not of that class.
    bool isEqual(const qmx::Object* other) const override;
    /// Name and range in one line.
    std::string description() const override;

    void encodeWithCoder(qmx::Coder& coder) const override;
    std::vector<std::string> archiveClassNames() const override;

private:
    std::optional<std::string> _processName;
    UInt64 _processIn = 0;
    UInt64 _processOut = 0;
    std::shared_ptr<qmx::Dictionary> _settings = std::make_shared<qmx::Dictionary>();
};
