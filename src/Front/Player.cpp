// SPDX-License-Identifier: MIT
#include "Front/Player.h"

#include "CoreAudioTypes/AudioBuffers.h"
#include "Devices/QMXAudioDevice.h"
#include "Devices/QMXAudioDeviceNotifications.h"
#include "Foundation/MainThread/NotificationCenter.h"
#include "Foundation/MainThread/RunLoop.h"
#include "Front/Format.h"
#include "Front/Missing.h"
#include "Front/ShortMemory.h"
#include "Front/StatusText.h"
#include "Playback/QMXAUAudioPlayer.h"
#include "Processing/QMXAudioProcessor.h"
#include "Tracks/QMXAudioTrackInfo.h"

#include <algorithm>
#include <utility>

namespace qmx
{
namespace
{

enum class State { playing, paused, ended };

constexpr UInt32 meteredChannels = 2; // what the player's unit plays

/// Measures what goes through it.
class MeteringProcessor final : public QMXAudioProcessor
{
public:
    explicit MeteringProcessor(std::unique_ptr<Levels> levels) : levels_(std::move(levels)) {}
    Levels& levels() { return *levels_; }

    void reset() override {}
    OSStatus processAudio_numberOfFrames(AudioBufferList& audio, UInt32* numberOfFrames) override
    {
        for (UInt32 channel = 0; channel < audio.mNumberBuffers; ++channel)
            levels_->addChannel(channel, static_cast<const float*>(audio.mBuffers[channel].mData), *numberOfFrames, 1);
        return noErr;
    }

private:
    const std::unique_ptr<Levels> levels_;
};

} // namespace

struct Player::Implementation : std::enable_shared_from_this<Implementation> {
    Implementation(std::shared_ptr<QMXAUAudioPlayer> used, std::string played, const PlayerOptions& wanted)
        : player(std::move(used)), path(std::move(played)), options(wanted), from(wanted.from),
          to(std::min(wanted.to.value_or(player->lengthInFrames()), player->lengthInFrames()))
    {
    }

    void watch()
    {
        const auto handler = [this](void (Implementation::*act)()) {
            return [weak = weak_from_this(), act](const Notification&) {
                if (const auto self = weak.lock())
                    (self.get()->*act)();
            };
        };
        auto& center = NotificationCenter::defaultCenter();
        observers = Subscription(
            {center.observe(QMXAudioPlayerFinishedPlayingNotification, player, handler(&Implementation::finish)),
             center.observe(QMXAudioHardwareDevicesDidChangeNotification, QMXAudioDevice::classObject(),
                            handler(&Implementation::endIfUnplugged))});
    }

    Error failure() const { return {player->lastStatus(), player->lastError(), path}; }

    Result<void> playFrom(SInt64 frame)
    {
        hasMoved = false;
        const auto bounds = QMXAudioTrackInfo::initWithTrackTitle_trackBegin_trackEnd_isActive(
            std::nullopt, static_cast<UInt64>(frame), static_cast<UInt64>(to), true);
        if (!bounds)
            return memoryError();
        return player->playTrack(*bounds) == noErr ? Result<void>() : Result<void>(failure());
    }

    Result<void> resume()
    {
        if (state != State::paused)
            return {};
        state = State::playing;
        if (player->currentFrameOffset() < to)
            return playFrom(player->currentFrameOffset());
        finish(); // it was paused in the silence after the last frame
        return {};
    }

    /// The last frame was played.
    void finish()
    {
        if (state != State::playing || player->isPlaying()) // a notification may be of before a seek
            return;
        if (player->lastStatus() != noErr)
            return end(failure());
        const bool wentBack = hasMoved && player->currentFrameOffset() < to;
        if (!wentBack && !options.loop)
            return end({});
        if (auto plays = playFrom(wentBack ? player->currentFrameOffset() : from); !plays)
            end(plays);
    }

    void endIfUnplugged()
    {
        const auto& device = player->outputDevice();
        if (state != State::ended && !player->followsDefaultDevice() && !device->isAlive())
            end(Error(kAudioHardwareBadDeviceError, device->name().value_or("The device") + " was unplugged"));
    }

    void end(Result<void> how)
    {
        if (std::exchange(state, State::ended) == State::ended)
            return;
        observers = {};
        (void)player->stop(); // what happened before counts
        result = std::move(how);
        tell();
    }

    /// Once there are both, an end and somebody who wants to know.
    void tell()
    {
        if (state != State::ended || !callback)
            return;
        RunLoop::main().perform([weak = weak_from_this(), called = std::exchange(callback, {})] {
            if (const auto self = weak.lock())
                called(self->result);
        });
    }

    const std::shared_ptr<QMXAUAudioPlayer> player;
    const std::string path;
    const PlayerOptions options;
    const SInt64 from, to;
    Float64 sampleRate = 0;
    std::shared_ptr<MeteringProcessor> meter;
    State state = State::playing;
    bool hasMoved = false; ///< since it was started last
    Subscription observers;
    Result<void> result;
    std::function<void(const Result<void>&)> callback;
};

Player::Player(std::shared_ptr<Implementation> implementation) : implementation_(std::move(implementation)) {}
Player::Player(Player&& other) noexcept = default;

Player& Player::operator=(Player&& other) noexcept
{
    implementation_.swap(other.implementation_);
    return *this;
}

Player::~Player()
{
    if (!implementation_)
        return;
    implementation_->callback = {};
    stop();
}

Result<Player> Player::play(const std::string& path, const PlayerOptions& options)
{
    return orNoMemory([&]() -> Result<Player> {
        const auto format = Format::of(path);
        if (!format)
            return format.error();
        const auto output = options.device ? Result<Device>(*options.device) : defaultOutput();
        if (!output)
            return output.error();
        if (output->outputChannels() == 0)
            return missing(*output->object(), false);
        auto player = QMXAUAudioPlayer::initWithAudioDevice_pathToFile(output->object(), path);
        if (!player)
            return memoryError();
        if (player->lastStatus() != noErr)
            return Error(player->lastStatus(), player->lastError(), path);
        player->setFollowsDefaultDevice(!options.device);
        player->setVolumeScalar(options.volume);
        auto made = std::make_shared<Implementation>(player, path, options);
        made->sampleRate = format->stream.mSampleRate;
        if (made->from < 0 || made->from >= made->to)
            return Error(paramErr, path + ": There is nothing to play in that range", path);
        if (options.meters) {
            auto levels = Levels::make(meteredChannels);
            if (!levels)
                return memoryError();
            made->meter = std::make_shared<MeteringProcessor>(std::move(levels));
            player->setAudioProcessor(made->meter);
        }
        made->watch();
        if (auto plays = made->playFrom(made->from); !plays)
            return plays.error();
        return Player(std::move(made));
    });
}

Result<Player> Player::play(const std::string& path, const QMXAudioTrackInfo& track, PlayerOptions options)
{
    options.from = static_cast<SInt64>(track.trackBegin());
    options.to = static_cast<SInt64>(track.trackEnd());
    return play(path, options);
}

void Player::onEnd(std::function<void(const Result<void>&)> callback)
{
    implementation_->callback = std::move(callback);
    implementation_->tell();
}

Result<void> Player::pause()
{
    Implementation& self = *implementation_;
    if (self.state != State::playing)
        return {};
    self.state = State::paused;
    return self.player->stop() == noErr ? Result<void>() : Result<void>(self.failure());
}

Result<void> Player::resume()
{
    return implementation_->resume();
}

void Player::stop()
{
    implementation_->end(Error(cancelledStatus, implementation_->path + ": Stopped", implementation_->path));
}

bool Player::isPaused() const
{
    return implementation_->state == State::paused;
}

bool Player::hasEnded() const
{
    return implementation_->state == State::ended;
}

SInt64 Player::position() const
{
    return std::min(implementation_->player->currentFrameOffset(), implementation_->to);
}

void Player::seek(SInt64 frame)
{
    implementation_->hasMoved = true;
    implementation_->player->setCurrentFrameOffset(std::clamp(frame, from(), to() - 1));
}

SInt64 Player::from() const
{
    return implementation_->from;
}

SInt64 Player::to() const
{
    return implementation_->to;
}

Float64 Player::sampleRate() const
{
    return implementation_->sampleRate;
}

float Player::volume() const
{
    return implementation_->player->volumeScalar();
}

void Player::setVolume(float volume)
{
    implementation_->player->setVolumeScalar(volume);
}

UInt64 Player::dropped() const
{
    return implementation_->player->droppedFrames();
}

std::vector<ChannelLevels> Player::levels()
{
    return implementation_->meter ? implementation_->meter->levels().read() : std::vector<ChannelLevels>();
}

const std::shared_ptr<QMXAUAudioPlayer>& Player::object() const
{
    return implementation_->player;
}

} // namespace qmx
