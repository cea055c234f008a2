// SPDX-License-Identifier: MIT
// The whole library in one header.
#pragma once

#include "FileRelated/QMXAudioFile.h"
#include "Formats/ByteUtility.h"
#include "Formats/PrintStreamDesc.h"
#include "Formats/QMXAudioBufferList.h"
#include "Formats/QMXAudioDeviceUtils.h"
#include "Formats/QMXAudioStreamBasicDescription.h"
#include "Formats/QMXAudioValueRange.h"
#include "Formats/QMXFileUtils.h"
#include "Foundation/Version.h"
#include "Processing/QMXAudioConverter.h"
#include "Tracks/QMXAudioTrackAutoDefiner.h"
#include "Tracks/QMXAudioTrackInfo.h"
#include "Tracks/SilenceAnalysis.h"
