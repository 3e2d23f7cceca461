// The ONVIF imaging service of one camera channel, over the controller's
// public interface only: its settings, options, focus moves and presets are
// the controller's keys, style document, lens operations and schemes.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "sensor-onvif/Soap.h"

class ISensorController;

namespace sensor_onvif {

// How a key's value becomes an ONVIF value.
enum class Conversion {
    Number,     // onvif = key value x scale; range from the style's slider or list
    Enum,       // onvif token <-> one or more key values
    Normalized, // onvif 0..1 = (value - min) / (max - min) of the style's range
    Offset,     // onvif -1..1 = (value - mid) / half-width of the style's range
    Seconds,    // xs:duration "PT<n>S" <-> seconds
    Reciprocal, // onvif = scale / key value (a shutter 1/N s as microseconds);
                // written as the offered choice nearest to the request
};

struct EnumValue {
    const char* token;          // "ON"
    std::vector<int> keyValues; // the key values that read as this token; the first
                                // the style offers is written
};

// One row of the mapping table: the single truth for one ONVIF field.
struct FieldMap {
    const char* path; // element path under ImagingSettings20, "Exposure/Iris"
    unsigned key;     // the key of the key-command table
    const char* keyName;
    Conversion conversion;
    std::vector<EnumValue> values; // Enum only
    double scale;                  // Number: factor (1 = pass-through); Reciprocal: numerator
};

// The mapping table, in the schema's element order.
SENSOR_ONVIF_API const std::vector<FieldMap>& imagingFieldMap();

struct ImagingConfig {
    std::string videoSourceToken = "VideoSource_1";
    int schemeCount = 4; // the user schemes offered as presets
    // How long what the style offers (which fields, their ranges and
    // choices) is reused by the settings, capabilities and focus operations
    // before the style is asked for again. GetOptions always asks; a change
    // of the controller's show flags, a preset switch and a refused change
    // drop the copy at once; 0 asks on every request.
    std::chrono::milliseconds styleMaxAge{1000};
    // The clock that age is measured on; empty means std::chrono::steady_clock.
    std::function<std::chrono::steady_clock::time_point()> clock;
};

// What the style document offers, parsed; defined with the service.
struct StyleOffers;

// Registers GetServiceCapabilities, GetImagingSettings, SetImagingSettings,
// GetOptions, GetMoveOptions, Move, Stop, GetStatus, GetPresets,
// GetCurrentPreset and SetCurrentPreset under kPath. Thread-safe.
class SENSOR_ONVIF_API ImagingService {
public:
    static constexpr const char* kPath = "/onvif/imaging_service";
    // Focus positions of Absolute and Relative moves: the lens motor's steps.
    static constexpr int kFocusMin = 0;
    static constexpr int kFocusMax = 65535;
    // The version of the imaging service WSDL whose operations and answers
    // this service implements (imaging.wsdl 19.06), for GetServices.
    static constexpr int kVersionMajor = 19;
    static constexpr int kVersionMinor = 6;

    explicit ImagingService(ISensorController& p_objController,
                            ImagingConfig p_objConfig = ImagingConfig());
    ImagingService(const ImagingService&) = delete;
    ImagingService& operator=(const ImagingService&) = delete;

    // The service must outlive the endpoint's use of these handlers.
    void registerOn(SoapEndpoint& p_objEndpoint);

    // The operations, callable directly with the operation element.
    Result getServiceCapabilities(const XmlNode& p_objOp);
    // The timg:Capabilities element of that answer, for a device service's
    // GetServices to include.
    std::string capabilitiesXml();
    Result getImagingSettings(const XmlNode& p_objOp);
    Result setImagingSettings(const XmlNode& p_objOp);
    Result getOptions(const XmlNode& p_objOp);
    Result getMoveOptions(const XmlNode& p_objOp);
    Result move(const XmlNode& p_objOp);
    Result stop(const XmlNode& p_objOp);
    Result getStatus(const XmlNode& p_objOp);
    Result getPresets(const XmlNode& p_objOp);
    Result getCurrentPreset(const XmlNode& p_objOp);
    Result setCurrentPreset(const XmlNode& p_objOp);

    const ImagingConfig& config() const { return m_objConfig; }

private:
    // The style's offers: the copy while it is younger than styleMaxAge and
    // the show flags are as they were, else (and always with p_bFresh) read
    // from the controller anew and kept.
    std::shared_ptr<const StyleOffers> offers(bool p_bFresh = false);
    void forgetOffers();
    // Sets the focus mode to manual through the controller's keys when the
    // style offers a manual mode and another holds; false when the
    // controller refused.
    bool manualFocus(const StyleOffers& p_objStyle);

    ISensorController& m_objController;
    ImagingConfig m_objConfig;
    std::atomic<bool> m_bMoving{false};
    // Serialises the service's changes (settings, preset, moves) against
    // each other, so that one client's rollback never undoes another's
    // change; a read of the settings takes it too, so that it never sees one
    // half applied.
    std::mutex m_objChangeMutex;

    // The kept offers and what they were read under. The lock is taken
    // before the controller's (a style read holds both), never after it.
    std::mutex m_objStyleMutex;
    std::shared_ptr<const StyleOffers> m_pOffers;
    std::chrono::steady_clock::time_point m_tOffersRead;
    bool m_bOffersWdr = false;
    bool m_bOffersBeaway = false;
};

} // namespace sensor_onvif
