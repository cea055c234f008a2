// SPDX-License-Identifier: MIT
// Codes that devices and streams report: how they are attached, what a stream leads to, and data sources.
#pragma once

#include <QMXCoreAudio/CoreAudioTypes/FourCharCode.h>

// How a device is attached.
inline constexpr UInt32 kIOAudioDeviceTransportTypeBuiltIn = qmx::fourCharCode("bltn");
inline constexpr UInt32 kIOAudioDeviceTransportTypePCI = qmx::fourCharCode("pci ");
inline constexpr UInt32 kIOAudioDeviceTransportTypeUSB = qmx::fourCharCode("usb ");
inline constexpr UInt32 kIOAudioDeviceTransportTypeFireWire = qmx::fourCharCode("1394");
inline constexpr UInt32 kIOAudioDeviceTransportTypeNetwork = qmx::fourCharCode("ntwk");
inline constexpr UInt32 kIOAudioDeviceTransportTypeWireless = qmx::fourCharCode("wrls");
inline constexpr UInt32 kIOAudioDeviceTransportTypeOther = qmx::fourCharCode("othr");
inline constexpr UInt32 kIOAudioDeviceTransportTypeBluetooth = qmx::fourCharCode("blue");
inline constexpr UInt32 kIOAudioDeviceTransportTypeVirtual = qmx::fourCharCode("virt");
inline constexpr UInt32 kAudioDeviceTransportTypeUnknown = 0;
inline constexpr UInt32 kAudioDeviceTransportTypeBuiltIn = qmx::fourCharCode("bltn");
inline constexpr UInt32 kAudioDeviceTransportTypeAggregate = qmx::fourCharCode("grup");
inline constexpr UInt32 kAudioDeviceTransportTypeAutoAggregate = qmx::fourCharCode("fgrp");
inline constexpr UInt32 kAudioDeviceTransportTypeVirtual = qmx::fourCharCode("virt");
inline constexpr UInt32 kAudioDeviceTransportTypePCI = qmx::fourCharCode("pci ");
inline constexpr UInt32 kAudioDeviceTransportTypeUSB = qmx::fourCharCode("usb ");
inline constexpr UInt32 kAudioDeviceTransportTypeFireWire = qmx::fourCharCode("1394");
inline constexpr UInt32 kAudioDeviceTransportTypeBluetooth = qmx::fourCharCode("blue");
inline constexpr UInt32 kAudioDeviceTransportTypeHDMI = qmx::fourCharCode("hdmi");
inline constexpr UInt32 kAudioDeviceTransportTypeDisplayPort = qmx::fourCharCode("dprt");
inline constexpr UInt32 kAudioDeviceTransportTypeAirPlay = qmx::fourCharCode("airp");
inline constexpr UInt32 kAudioDeviceTransportTypeAVB = qmx::fourCharCode("eavb");
inline constexpr UInt32 kAudioDeviceTransportTypeThunderbolt = qmx::fourCharCode("thun");

// What a stream leads to or comes from.
inline constexpr UInt32 OUTPUT_NULL = 0x0100;
inline constexpr UInt32 INPUT_NULL = 0x0101;
inline constexpr UInt32 INPUT_UNDEFINED = 0x0200;
inline constexpr UInt32 INPUT_MICROPHONE = 0x0201;
inline constexpr UInt32 INPUT_DESKTOP_MICROPHONE = 0x0202;
inline constexpr UInt32 INPUT_PERSONAL_MICROPHONE = 0x0203;
inline constexpr UInt32 INPUT_OMNIDIRECTIONAL_MICROPHONE = 0x0204;
inline constexpr UInt32 INPUT_MICROPHONE_ARRAY = 0x0205;
inline constexpr UInt32 INPUT_PROCESSING_MICROPHONE_ARRAY = 0x0206;
inline constexpr UInt32 INPUT_MODEM_AUDIO = 0x0207;
inline constexpr UInt32 OUTPUT_UNDEFINED = 0x0300;
inline constexpr UInt32 OUTPUT_SPEAKER = 0x0301;
inline constexpr UInt32 OUTPUT_HEADPHONES = 0x0302;
inline constexpr UInt32 OUTPUT_HEAD_MOUNTED_DISPLAY_AUDIO = 0x0303;
inline constexpr UInt32 OUTPUT_DESKTOP_SPEAKER = 0x0304;
inline constexpr UInt32 OUTPUT_ROOM_SPEAKER = 0x0305;
inline constexpr UInt32 OUTPUT_COMMUNICATION_SPEAKER = 0x0306;
inline constexpr UInt32 OUTPUT_LOW_FREQUENCY_EFFECTS_SPEAKER = 0x0307;
inline constexpr UInt32 BIDIRECTIONAL_UNDEFINED = 0x0400;
inline constexpr UInt32 BIDIRECTIONAL_HANDSET = 0x0401;
inline constexpr UInt32 BIDIRECTIONAL_HEADSET = 0x0402;
inline constexpr UInt32 TELEPHONY_UNDEFINED = 0x0500;
inline constexpr UInt32 TELEPHONY_PHONE_LINE = 0x0501;
inline constexpr UInt32 EXTERNAL_UNDEFINED = 0x0600;
inline constexpr UInt32 EXTERNAL_ANALOG_CONNECTOR = 0x0601;
inline constexpr UInt32 EXTERNAL_DIGITAL_AUDIO_INTERFACE = 0x0602;
inline constexpr UInt32 EXTERNAL_LINE_CONNECTOR = 0x0603;
inline constexpr UInt32 EXTERNAL_LEGACY_AUDIO_CONNECTOR = 0x0604;
inline constexpr UInt32 EXTERNAL_SPDIF_INTERFACE = 0x0605;
inline constexpr UInt32 EXTERNAL_1394_DA_STREAM = 0x0606;
inline constexpr UInt32 EXTERNAL_1394_DV_STREAM_SOUNDTRACK = 0x0607;
inline constexpr UInt32 EXTERNAL_ADAT = 0x0608;
inline constexpr UInt32 EXTERNAL_TDIF = 0x0609;
inline constexpr UInt32 EXTERNAL_MADI = 0x060A;
inline constexpr UInt32 EMBEDDED_UNDEFINED = 0x0700;
inline constexpr UInt32 EMBEDDED_CD_PLAYER = 0x0703;
inline constexpr UInt32 EMBEDDED_SYNTHESIZER = 0x0713;
inline constexpr UInt32 PROCESSOR_UNDEFINED = 0x0800;
inline constexpr UInt32 PROCESSOR_GENERAL = 0x0801;
inline constexpr UInt32 kAudioStreamTerminalTypeUnknown = 0;
inline constexpr UInt32 kAudioStreamTerminalTypeLine = qmx::fourCharCode("line");
inline constexpr UInt32 kAudioStreamTerminalTypeDigitalAudioInterface = qmx::fourCharCode("spdf");
inline constexpr UInt32 kAudioStreamTerminalTypeSpeaker = qmx::fourCharCode("spkr");
inline constexpr UInt32 kAudioStreamTerminalTypeHeadphones = qmx::fourCharCode("hdph");
inline constexpr UInt32 kAudioStreamTerminalTypeLFESpeaker = qmx::fourCharCode("lfes");
inline constexpr UInt32 kAudioStreamTerminalTypeReceiverSpeaker = qmx::fourCharCode("rspk");
inline constexpr UInt32 kAudioStreamTerminalTypeMicrophone = qmx::fourCharCode("micr");
inline constexpr UInt32 kAudioStreamTerminalTypeHeadsetMicrophone = qmx::fourCharCode("hmic");
inline constexpr UInt32 kAudioStreamTerminalTypeReceiverMicrophone = qmx::fourCharCode("rmic");
inline constexpr UInt32 kAudioStreamTerminalTypeTTY = qmx::fourCharCode("tty_");
inline constexpr UInt32 kAudioStreamTerminalTypeHDMI = qmx::fourCharCode("hdmi");
inline constexpr UInt32 kAudioStreamTerminalTypeDisplayPort = qmx::fourCharCode("dprt");

// Usual identifiers of data sources.
inline constexpr UInt32 kIOAudioSelectorControlSelectionValueNone = qmx::fourCharCode("none");
inline constexpr UInt32 kIOAudioSelectorControlSelectionValueInternalSpeaker = qmx::fourCharCode("ispk");
inline constexpr UInt32 kIOAudioSelectorControlSelectionValueExternalSpeaker = qmx::fourCharCode("espk");
inline constexpr UInt32 kIOAudioSelectorControlSelectionValueHeadphones = qmx::fourCharCode("hdpn");
inline constexpr UInt32 kIOAudioSelectorControlSelectionValueInternalMicrophone = qmx::fourCharCode("imic");
inline constexpr UInt32 kIOAudioSelectorControlSelectionValueExternalMicrophone = qmx::fourCharCode("emic");
inline constexpr UInt32 kIOAudioSelectorControlSelectionValueCD = qmx::fourCharCode("cd  ");
inline constexpr UInt32 kIOAudioSelectorControlSelectionValueLine = qmx::fourCharCode("line");
inline constexpr UInt32 kIOAudioSelectorControlSelectionValueSPDIF = qmx::fourCharCode("spdf");
