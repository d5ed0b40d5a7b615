#include "sim/LinkReplies.h"

#include "sim/ConfigurationImage.h"

#include <algorithm>

namespace vyx::sim {
namespace {

ConfigurationDefects defectsOf(const FaultSettings& fault) {
    return {fault.badChecksumBlock1, fault.badChecksumBlock2};
}

void sendModelText(DeviceCore& core, DeviceCore::Link& link, const FaultSettings& fault) {
    const auto d = core.description();
    if (!d->answersModelTextRequest || fault.noModelTextReply) return;
    const auto reply = encodeModelTextReply(*d);
    link.send(reply.data(), reply.size());
}

void sendMarkerFrame(DeviceCore& core, DeviceCore::Link& link, const FaultSettings& fault,
                     std::uint8_t* bytes, std::size_t size) {
    if (fault.corruptEndMark) bytes[size - 2] = 0xFE;
    core.sendMarkerFrame(link, bytes, std::min(fault.shortMarkerFrameBytes.value_or(size), size));
}

// Ethernet and USB answer the same commands alike, except that trigger and
// mode are echoed on Ethernet only and image blocks take the framing's size.
void answerEthernetOrUsb(std::uint8_t command, LinkFraming framing, DeviceCore& core,
                         DeviceCore::Link& link, const FaultSettings& fault) {
    switch (command) {
        case code::kMarkerRequest: {
            const auto frame = core.takeMarkerFrame(link);
            if (!frame) break;
            auto bytes = encodeMarkerFrame(*frame);
            sendMarkerFrame(core, link, fault, bytes.data(), bytes.size());
            break;
        }
        case code::kTrigger:
        case code::kAcquireMode:
            if (framing == LinkFraming::Ethernet) link.send(&command, 1);
            break;
        case code::kConfigRead: {
            if (core.leaveConfigReadUnanswered()) break;
            const auto data = encodeShortConfiguration(*core.description(), defectsOf(fault));
            link.send(data.data(), fault.omitSecondConfigBlock ? kConfigBlockBytes : data.size());
            break;
        }
        case code::kLongConfigRead: {
            const auto d = core.description();
            if (!d->longConfiguration || fault.noLongForm) break;
            const auto data = encodeLongConfiguration(*d, defectsOf(fault));
            link.send(data.data(), data.size());
            break;
        }
        case code::kModelTextRead:
            sendModelText(core, link, fault);
            break;
        case code::kLeftGreyFirst:
        case code::kLeftGreyNext:
            core.sendImageBlock(link, ImageCamera::LeftGrey, command == code::kLeftGreyFirst,
                                framing);
            break;
        case code::kRightGreyFirst:
        case code::kRightGreyNext:
            core.sendImageBlock(link, ImageCamera::RightGrey, command == code::kRightGreyFirst,
                                framing);
            break;
        case code::kColourFirst:
        case code::kColourNext:
            core.sendImageBlock(link, ImageCamera::Colour, command == code::kColourFirst, framing);
            break;
        default:
            break;  // settings, system commands and unknown codes: recorded only
    }
}

void answerWifi(std::uint8_t command, DeviceCore& core, DeviceCore::Link& link,
                const FaultSettings& fault) {
    switch (command) {
        case code::kWifiMarkerRequest: {
            const auto frame = core.takeMarkerFrame(link);
            if (!frame) break;
            auto bytes = encodeWifiMarkerFrame(*frame);
            if (fault.wifiAnnouncedLength) {
                bytes[2] = static_cast<std::uint8_t>(*fault.wifiAnnouncedLength & 0xFF);
                bytes[3] = static_cast<std::uint8_t>(*fault.wifiAnnouncedLength >> 8);
            }
            sendMarkerFrame(core, link, fault, bytes.data(), bytes.size());
            break;
        }
        case code::kMarkerRequest: {  // the status request on this link
            const auto status = core.status(link);
            if (!status) break;
            auto bytes = encodeWifiStatusFrame(*status);
            if (fault.badWifiStatusFrame) bytes[kWifiStatusFrameBytes - 2] = 0xFE;
            link.send(bytes.data(), bytes.size());
            break;
        }
        case code::kConfigRead: {
            if (core.leaveConfigReadUnanswered()) break;
            const auto frame = encodeWifiConfigurationFrame(*core.description(), defectsOf(fault));
            link.send(frame.data(),
                      fault.omitSecondConfigBlock ? 4 + kConfigBlockBytes : frame.size());
            break;
        }
        case code::kModelTextRead:
            sendModelText(core, link, fault);
            break;
        default:
            break;  // settings, system commands, commands the module does not carry
    }
}

}  // namespace

void answerCommand(const std::vector<std::uint8_t>& packet, LinkFraming framing,
                   DeviceCore& core, DeviceCore::Link& link) {
    if (packet.empty()) return;
    const FaultSettings fault = core.faults();
    if (fault.stopAnswering) return;
    if (framing == LinkFraming::WiFi)
        answerWifi(packet[0], core, link, fault);
    else
        answerEthernetOrUsb(packet[0], framing, core, link, fault);
}

}  // namespace vyx::sim
