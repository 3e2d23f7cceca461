// The SOAP 1.2 envelope: a request body read into its XmlNode tree (names
// resolved against the namespace declarations in scope, nesting bounded
// before TinyXML sees the text) and the envelope around every reply. Its own
// unit so that nothing else in the layer touches TinyXML or the envelope's
// text.
#pragma once

#include <string>

#include "sensor-onvif/Soap.h"

namespace sensor_onvif {
namespace soap {

// The deepest element nesting of a text, counted before TinyXML (which
// recurses) sees it. Comments, CDATA sections, declarations and processing
// instructions are skipped; a count that runs over the limit stops early.
bool nestingWithin(const std::string& p_strText, int p_nMax);

// Parses a request body into the tree of its root element; false with the
// reason ("malformed XML: ...") when it is not a document.
bool parseEnvelope(const std::string& p_strBody, XmlNode& p_objEnvelope, std::string& p_strWhy);

// Every reply declares the response prefixes of ns (see Soap.h).
const std::string& envelopeOpen();
constexpr const char* kEnvelopeClose = "</env:Body></env:Envelope>\n";

} // namespace soap
} // namespace sensor_onvif
