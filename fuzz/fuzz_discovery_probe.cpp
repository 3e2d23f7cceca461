// A WS-Discovery datagram as it comes from the network, read the way the
// camera's discovery service reads it. A refusal must name its reason; a
// Probe or Resolve that names the camera gets its answer built, and that
// answer must be well-formed XML (it repeats the sender's MessageID) with
// the MessageID back in its RelatesTo.
#include <cstddef>
#include <cstdint>
#include <string>

#include <tinyxml.h>

#include "DiscoveryMessage.h"

namespace {

using namespace sensorctl::discovery;

const Target& camera() {
    static const Target target = [] {
        Target t;
        t.strAddress = "urn:uuid:0f1e2d3c-4b5a-5968-8776-a5b4c3d2e1f0";
        t.types = cameraTypes();
        t.scopes = {
            "onvif://www.onvif.org/Profile/Streaming", "onvif://www.onvif.org/type/video_encoder",
            "onvif://www.onvif.org/hardware/SIM-BOX", "onvif://www.onvif.org/name/sensorctl",
            "onvif://www.onvif.org/location/simulated"};
        t.xaddrs = {"http://127.0.0.1:8080/onvif/device_service"};
        return t;
    }();
    return target;
}

// The answer parses and relates to the MessageID (TinyXML condenses blanks
// in texts, so only a MessageID without blank runs is compared whole).
void checkAnswer(const std::string& p_strAnswer, const std::string& p_strMessageId) {
    for (const char ch : p_strAnswer)
        if (static_cast<unsigned char>(ch) < 0x20)
            __builtin_trap();
    TiXmlDocument doc;
    doc.Parse(p_strAnswer.c_str(), nullptr, TIXML_ENCODING_UTF8);
    const TiXmlElement* pRoot = doc.RootElement();
    if (doc.Error() || !pRoot)
        __builtin_trap();
    const TiXmlElement* pHeader = pRoot->FirstChildElement("env:Header");
    const TiXmlElement* pRelates = pHeader ? pHeader->FirstChildElement("wsa:RelatesTo") : nullptr;
    if (!pRelates)
        __builtin_trap();
    if (p_strMessageId.find(' ') == std::string::npos) {
        const char* sz = pRelates->GetText();
        if (!sz || p_strMessageId != sz)
            __builtin_trap();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Inbound msg;
    std::string strWhy;
    if (!parseInbound(reinterpret_cast<const char*>(data), size, msg, strWhy)) {
        if (strWhy.empty())
            __builtin_trap();
        return 0;
    }
    if (msg.strMessageId.empty())
        __builtin_trap();
    const Sequence seq{1, 1};
    if (msg.kind == MessageKind::Probe) {
        const Match match = matchProbe(msg, camera());
        // The rules the camera names are exactly those it applies.
        const bool bKnown = msg.strMatchBy.empty() || msg.strMatchBy == rule::kRfc3986 ||
                            msg.strMatchBy == rule::kRfc2396 || msg.strMatchBy == rule::kStrcmp0;
        if ((match == Match::RuleNotSupported) == bKnown)
            __builtin_trap();
        if (match == Match::Yes)
            checkAnswer(probeMatches(camera(), msg.strMessageId, "urn:uuid:x", seq),
                        msg.strMessageId);
        else if (match == Match::RuleNotSupported)
            checkAnswer(matchingRuleFault(msg.strMessageId, "urn:uuid:x"), msg.strMessageId);
    } else if (matchResolve(msg, camera())) {
        checkAnswer(resolveMatches(camera(), msg.strMessageId, "urn:uuid:x", seq),
                    msg.strMessageId);
    }
    return 0;
}
