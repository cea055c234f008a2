// SPDX-License-Identifier: MIT
#include "AudioToolbox/Conversion/ChannelLayouts.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <numbers>
#include <string_view>

namespace qmx
{
namespace
{

struct TagOrder {
    AudioChannelLayoutTag tag;
    std::string_view channels; ///< a letter for each, see `labelOf`
};

constexpr std::array tagOrders{
    TagOrder{kAudioChannelLayoutTag_Mono, "m"},
    TagOrder{kAudioChannelLayoutTag_Stereo, "LR"},
    TagOrder{kAudioChannelLayoutTag_Quadraphonic, "LRlr"},
    TagOrder{kAudioChannelLayoutTag_MPEG_3_0_A, "LRC"},
    TagOrder{kAudioChannelLayoutTag_MPEG_3_0_B, "CLR"},
    TagOrder{kAudioChannelLayoutTag_MPEG_4_0_A, "LRCc"},
    TagOrder{kAudioChannelLayoutTag_MPEG_4_0_B, "CLRc"},
    TagOrder{kAudioChannelLayoutTag_MPEG_5_0_A, "LRClr"},
    TagOrder{kAudioChannelLayoutTag_MPEG_5_0_B, "LRlrC"},
    TagOrder{kAudioChannelLayoutTag_MPEG_5_0_C, "LCRlr"},
    TagOrder{kAudioChannelLayoutTag_MPEG_5_0_D, "CLRlr"},
    TagOrder{kAudioChannelLayoutTag_MPEG_5_1_A, "LRCelr"},
    TagOrder{kAudioChannelLayoutTag_MPEG_5_1_B, "LRlrCe"},
    TagOrder{kAudioChannelLayoutTag_MPEG_5_1_C, "LCRlre"},
    TagOrder{kAudioChannelLayoutTag_MPEG_5_1_D, "CLRlre"},
    TagOrder{kAudioChannelLayoutTag_MPEG_6_1_A, "LRCelrc"},
    TagOrder{kAudioChannelLayoutTag_MPEG_7_1_A, "LRCelrab"},
    TagOrder{kAudioChannelLayoutTag_MPEG_7_1_B, "CabLRlre"},
    TagOrder{kAudioChannelLayoutTag_MPEG_7_1_C, "LRCelrxy"},
    TagOrder{kAudioChannelLayoutTag_ITU_2_1, "LRc"},
    TagOrder{kAudioChannelLayoutTag_ITU_2_2, "LRlr"},
};

constexpr AudioChannelLabel labelOf(char letter)
{
    switch (letter) {
    case 'L':
        return kAudioChannelLabel_Left;
    case 'R':
        return kAudioChannelLabel_Right;
    case 'C':
        return kAudioChannelLabel_Center;
    case 'e':
        return kAudioChannelLabel_LFEScreen;
    case 'l':
        return kAudioChannelLabel_LeftSurround;
    case 'r':
        return kAudioChannelLabel_RightSurround;
    case 'c':
        return kAudioChannelLabel_CenterSurround;
    case 'a':
        return kAudioChannelLabel_LeftCenter;
    case 'b':
        return kAudioChannelLabel_RightCenter;
    case 'x':
        return kAudioChannelLabel_RearSurroundLeft;
    case 'y':
        return kAudioChannelLabel_RearSurroundRight;
    default:
        return kAudioChannelLabel_Mono;
    }
}

std::vector<AudioChannelLabel> labelsOfTag(AudioChannelLayoutTag tag)
{
    const auto* const found = std::ranges::find(tagOrders, tag, &TagOrder::tag);
    std::vector<AudioChannelLabel> labels;
    if (found != tagOrders.end())
        std::ranges::transform(found->channels, std::back_inserter(labels), labelOf);
    return labels;
}

std::vector<AudioChannelLabel> labelsOfBitmap(UInt32 bitmap)
{
    // the bits are in the order of their labels
    constexpr UInt32 labelsWithBits = 18;
    std::vector<AudioChannelLabel> labels;
    for (AudioChannelLabel label = 1; label <= labelsWithBits; ++label)
        if (bitmap & 1U << (label - 1))
            labels.push_back(label);
    return labels;
}

std::vector<AudioChannelLabel> labelsOfDescriptions(std::span<const std::byte> descriptions, UInt32 count)
{
    std::vector<AudioChannelLabel> labels(
        std::min(count, UInt32(descriptions.size() / sizeof(AudioChannelDescription))));
    for (std::size_t i = 0; i < labels.size(); ++i)
        std::memcpy(&labels[i], &descriptions[i * sizeof(AudioChannelDescription)], sizeof labels[i]);
    return labels;
}

struct Shares {
    Float64 left, right;
};

std::optional<Shares> sharesOf(AudioChannelLabel label)
{
    constexpr Float64 half = 1 / std::numbers::sqrt2; // of the power
    switch (label) {
    case kAudioChannelLabel_Left:
        return Shares{1, 0};
    case kAudioChannelLabel_Right:
        return Shares{0, 1};
    case kAudioChannelLabel_Center:
        return Shares{half, half};
    case kAudioChannelLabel_LeftSurround:
    case kAudioChannelLabel_LeftSurroundDirect:
    case kAudioChannelLabel_RearSurroundLeft:
    case kAudioChannelLabel_LeftCenter:
        return Shares{half, 0};
    case kAudioChannelLabel_RightSurround:
    case kAudioChannelLabel_RightSurroundDirect:
    case kAudioChannelLabel_RearSurroundRight:
    case kAudioChannelLabel_RightCenter:
        return Shares{0, half};
    case kAudioChannelLabel_CenterSurround:
        return Shares{half * half, half * half};
    case kAudioChannelLabel_LFEScreen:
    case kAudioChannelLabel_LFE2:
        return Shares{0, 0};
    default:
        return std::nullopt;
    }
}

} // namespace

std::vector<AudioChannelLabel> channelLabels(std::span<const std::byte> layout)
{
    constexpr std::size_t headSize = offsetof(AudioChannelLayout, mChannelDescriptions);
    if (layout.size() < headSize)
        return {};
    AudioChannelLayout head;
    std::memcpy(static_cast<void*>(&head), layout.data(), headSize);
    if (head.mChannelLayoutTag == kAudioChannelLayoutTag_UseChannelBitmap)
        return labelsOfBitmap(head.mChannelBitmap);
    if (head.mChannelLayoutTag == kAudioChannelLayoutTag_UseChannelDescriptions)
        return labelsOfDescriptions(layout.subspan(headSize), head.mNumberChannelDescriptions);
    return labelsOfTag(head.mChannelLayoutTag);
}

std::optional<ChannelRoutes> foldDown(std::span<const AudioChannelLabel> from, std::span<const AudioChannelLabel> to)
{
    constexpr std::array<AudioChannelLabel, 2> stereo{kAudioChannelLabel_Left, kAudioChannelLabel_Right};
    if (from.size() <= stereo.size() || !std::ranges::equal(to, stereo))
        return std::nullopt;
    ChannelRoutes routes = ChannelRoutes::between(static_cast<UInt32>(from.size()), 2);
    routes.weights.assign(2 * from.size(), 0);
    Float64 left = 0, right = 0;
    for (std::size_t i = 0; i < from.size(); ++i) {
        const auto shares = sharesOf(from[i]);
        if (!shares)
            return std::nullopt;
        left += routes.weights[i] = shares->left;
        right += routes.weights[from.size() + i] = shares->right;
    }
    const Float64 most = std::max({left, right, 1.0});
    for (Float64& weight : routes.weights)
        weight /= most;
    return routes;
}

} // namespace qmx
