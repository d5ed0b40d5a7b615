#include "sim/LinkReplies.h"

#include "sim/ConfigurationImage.h"

#include <algorithm>
#include <thread>

namespace vyx::sim {
namespace {

ConfigurationDefects defectsOf(const FaultSettings& fault) {
    return {fault.badChecksumBlock1, fault.badChecksumBlock2};
}

void send(DeviceCore::Link& link, const std::vector<std::uint8_t>& bytes) {
    link.send(bytes.data(), bytes.size());
}

void sendModelText(DeviceCore& core, DeviceCore::Link& link, const FaultSettings& fault) {
    const auto d = core.description();
    if (fault.noModelTextReply) return;
    if (d->recordedReplies) {
        if (d->recordedReplies->modelText) send(link, *d->recordedReplies->modelText);
    } else if (d->answersModelTextRequest) {
        send(link, encodeModelTextReply(*d));
    }
}

// The configuration read's reply, cut to `firstBlockEnd` bytes when the
// second block is to be left out.
void sendConfiguration(DeviceCore& core, DeviceCore::Link& link, const FaultSettings& fault,
                       LinkFraming framing, std::size_t firstBlockEnd) {
    if (core.leaveConfigReadUnanswered()) return;
    const auto d = core.description();
    const auto data =
        d->recordedReplies ? d->recordedReplies->configuration
        : framing == LinkFraming::WiFi ? encodeWifiConfigurationFrame(*d, defectsOf(fault))
                                       : encodeShortConfiguration(*d, defectsOf(fault));
    link.send(data.data(),
              fault.omitSecondConfigBlock ? std::min(firstBlockEnd, data.size()) : data.size());
}

// The marker frame's wire form: as recorded, or encoded in the framing's form.
std::vector<std::uint8_t> markerFrameBytes(const MarkerFrame& frame, LinkFraming framing) {
    if (frame.recorded) return frame.recorded->markerFrame;
    if (framing == LinkFraming::WiFi) return encodeWifiMarkerFrame(frame);
    const auto bytes = encodeMarkerFrame(frame);
    return {bytes.begin(), bytes.end()};
}

void sendMarkerFrame(DeviceCore& core, DeviceCore::Link& link, const FaultSettings& fault,
                     std::vector<std::uint8_t>& bytes) {
    const std::size_t size = bytes.size();
    if (fault.corruptEndMark && size >= 2) bytes[size - 2] = 0xFE;
    core.sendMarkerFrame(link, bytes.data(),
                         std::min(fault.shortMarkerFrameBytes.value_or(size), size));
}

// Ethernet and USB answer the same commands alike, except that trigger and
// mode are echoed on Ethernet only and image blocks take the framing's size.
void answerEthernetOrUsb(std::uint8_t command, LinkFraming framing, DeviceCore& core,
                         DeviceCore::Link& link, const FaultSettings& fault) {
    switch (command) {
        case code::kMarkerRequest: {
            const auto frame = core.takeMarkerFrame(link);
            if (!frame) break;
            auto bytes = markerFrameBytes(*frame, framing);
            sendMarkerFrame(core, link, fault, bytes);
            break;
        }
        case code::kTrigger:
        case code::kAcquireMode:
            if (framing == LinkFraming::Ethernet) link.send(&command, 1);
            break;
        case code::kConfigRead:
            sendConfiguration(core, link, fault, framing, kConfigBlockBytes);
            break;
        case code::kLongConfigRead: {
            const auto d = core.description();
            if (fault.noLongForm) break;
            if (d->recordedReplies) {
                if (d->recordedReplies->longForm) send(link, *d->recordedReplies->longForm);
            } else if (d->longConfiguration) {
                send(link, encodeLongConfiguration(*d, defectsOf(fault)));
            }
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
            auto bytes = markerFrameBytes(*frame, LinkFraming::WiFi);
            if (fault.wifiAnnouncedLength && bytes.size() >= 4) {
                bytes[2] = static_cast<std::uint8_t>(*fault.wifiAnnouncedLength & 0xFF);
                bytes[3] = static_cast<std::uint8_t>(*fault.wifiAnnouncedLength >> 8);
            }
            sendMarkerFrame(core, link, fault, bytes);
            break;
        }
        case code::kMarkerRequest: {  // the status request on this link
            const auto frame = core.statusFrame(link);
            if (!frame) break;
            std::vector<std::uint8_t> bytes;
            if (frame->recorded) {
                bytes = frame->recorded->wifiStatusFrame;
            } else {
                const auto encoded = encodeWifiStatusFrame(frame->status);
                bytes.assign(encoded.begin(), encoded.end());
            }
            if (bytes.empty()) break;
            if (fault.badWifiStatusFrame && bytes.size() >= 2) bytes[bytes.size() - 2] = 0xFE;
            send(link, bytes);
            break;
        }
        case code::kConfigRead:
            sendConfiguration(core, link, fault, LinkFraming::WiFi, 4 + kConfigBlockBytes);
            break;
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
    if (fault.replyDelay.count() > 0) std::this_thread::sleep_for(fault.replyDelay);
    if (framing == LinkFraming::WiFi)
        answerWifi(packet[0], core, link, fault);
    else
        answerEthernetOrUsb(packet[0], framing, core, link, fault);
}

}  // namespace vyx::sim
