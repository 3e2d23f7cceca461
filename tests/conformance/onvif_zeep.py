#!/usr/bin/python3
"""The ONVIF device and imaging services of `sensorctl serve` (and the two
media operations that lead a client to the source), driven by
clients nobody here wrote: Debian's python3-zeep, built from the official
WSDLs, sends every supported operation and must parse every answer (it is
strict: an element in the wrong namespace or order is an error), and
python3-lxml validates every SOAP body the camera sends, answers and faults,
against onvif.xsd, the device and imaging schemas and the SOAP 1.2 envelope
schema.

The standards are read from ../shared/onvif beside the project's root (or
ONVIF_REFERENCE); nothing is fetched from the network.

  onvif_zeep.py --sensorctl PATH      start `sensorctl serve` on a free loopback
                                      port with fresh credentials (SENSORCTL_DATA
                                      as the e2e scripts set it)
  onvif_zeep.py --url http://127.0.0.1:PORT --user U --password P
                                      use a server already running

Exit status 0: every check passed; 1: a check failed; 77: python3-zeep or
python3-lxml is not installed (the ctest skips).
"""
import argparse
import datetime
import os
import re
import secrets
import subprocess
import sys
import tempfile
import time
from urllib.parse import urlparse

try:
    import zeep
    import zeep.exceptions
    import zeep.plugins
    import zeep.wsse.username
    from lxml import etree
except ImportError as missing:
    print("onvif_zeep: skipped, %s (apt-get install python3-zeep python3-lxml)" % missing)
    sys.exit(77)

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))

NS = {
    "env": "http://www.w3.org/2003/05/soap-envelope",
    "tt": "http://www.onvif.org/ver10/schema",
    "tds": "http://www.onvif.org/ver10/device/wsdl",
    "trt": "http://www.onvif.org/ver10/media/wsdl",
    "timg": "http://www.onvif.org/ver20/imaging/wsdl",
    "ter": "http://www.onvif.org/ver10/error",
    "xs": "http://www.w3.org/2001/XMLSchema",
}
SOURCE = "VideoSource_1"

# The schemas the ONVIF files import by URL, read from ext/ instead.
URL_FILES = {
    "docs.oasis-open.org/wsn/b-2.xsd": "b-2.xsd",
    "docs.oasis-open.org/wsn/bw-2.wsdl": "bw-2.wsdl",
    "docs.oasis-open.org/wsn/t-1.xsd": "t-1.xsd",
    "docs.oasis-open.org/wsrf/bf-2.xsd": "bf-2.xsd",
    "docs.oasis-open.org/wsrf/r-2.xsd": "r-2.xsd",
    "docs.oasis-open.org/wsrf/rw-2.wsdl": "rw-2.wsdl",
    "www.w3.org/2005/08/addressing/ws-addr.xsd": "ws-addr.xsd",
    "www.w3.org/2003/05/soap-envelope": "soap12-envelope.xsd",
    "www.w3.org/2005/05/xmlmime": "xmlmime.xsd",
    "www.w3.org/2004/08/xop/include": "xop-include.xsd",
    "www.w3.org/2001/xml.xsd": "xml.xsd",
    "www.w3.org/2009/01/xml.xsd": "xml.xsd",
}


def fail(text):
    print("onvif_zeep: FAILED: " + text, file=sys.stderr)
    sys.exit(1)


def reference_dir():
    folder = os.environ.get("ONVIF_REFERENCE") or os.path.join(ROOT, "..", "shared", "onvif")
    folder = os.path.abspath(folder)
    for part in ("wsdl/ver10/schema/onvif.xsd", "wsdl/ver10/device/wsdl/devicemgmt.wsdl",
                 "wsdl/ver20/imaging/wsdl/imaging.wsdl", "ext/soap12-envelope.xsd"):
        if not os.path.isfile(os.path.join(folder, part)):
            fail("the ONVIF reference files are not at %s (missing %s); they belong at "
                 "../shared/onvif beside the project's root, or name the folder in "
                 "ONVIF_REFERENCE" % (folder, part))
    return folder


def mapped_file(ext, url):
    """The ext/ file of an imported URL, or None for a URL that is not one."""
    parsed = urlparse(url)
    if parsed.scheme not in ("http", "https"):
        return None
    name = URL_FILES.get(parsed.netloc + parsed.path)
    if name is None:
        # A relative import of a mapped file ("./ws-addr.xsd" in b-2.xsd)
        # names its neighbour, which lives beside it in ext/.
        name = os.path.basename(parsed.path)
        if not os.path.isfile(os.path.join(ext, name)):
            fail("an ONVIF file imports %s, which has no offline copy" % url)
    return os.path.join(ext, name)


class OfflineTransport(zeep.Transport):
    """Reads imported URLs from ext/; never touches the network to load."""

    def __init__(self, ext, **kwargs):
        super().__init__(**kwargs)
        self.ext = ext

    def load(self, url):
        path = mapped_file(self.ext, url)
        if path is not None:
            with open(path, "rb") as fh:
                return fh.read()
        return super().load(url)


class OffsetUsernameToken(zeep.wsse.username.UsernameToken):
    """A PasswordDigest token dated by the device's clock (as read with
    GetSystemDateAndTime), with a fresh nonce for every request."""

    def __init__(self, user, password, offset):
        super().__init__(user, password, use_digest=True, zulu_timestamp=True)
        self.offset = offset

    def apply(self, envelope, headers):
        self.created = datetime.datetime.utcnow() + self.offset
        return super().apply(envelope, headers)


class OnvifResolver(etree.Resolver):
    """lxml's loader for the schemas: URLs to ext/, and onvif.xsd with its one
    wildcard that breaks XSD 1.0's unique particle attribution rewritten (in
    memory only; no answer of a camera uses that extension)."""

    def __init__(self, reference):
        super().__init__()
        self.ext = os.path.join(reference, "ext")
        self.onvif = os.path.join(reference, "wsdl", "ver10", "schema", "onvif.xsd")

    def resolve(self, url, pubid, context):
        path = mapped_file(self.ext, url)
        if path is not None:
            with open(path, "rb") as fh:
                return self.resolve_string(fh.read(), context, base_url="file://" + path)
        local = url[len("file://"):] if url.startswith("file://") else url
        if os.path.abspath(local) == self.onvif:
            with open(self.onvif, encoding="utf-8") as fh:
                text = fh.read()
            text, count = re.subn(
                r'(<xs:complexType name="VideoSourceConfigurationOptionsExtension2">.*?'
                r'<xs:any namespace=")##targetNamespace(")', r"\1##other\2", text, count=1,
                flags=re.S)
            if count != 1:
                fail("onvif.xsd: the wildcard of VideoSourceConfigurationOptionsExtension2 "
                     "was not found")
            return self.resolve_string(text.encode("utf-8"), context,
                                       base_url="file://" + self.onvif)
        return None


def embedded_schema(reference, wsdl):
    """The xs:schema of a WSDL's types, as a document of its own whose import
    of onvif.xsd names the file by its full path."""
    path = os.path.join(reference, "wsdl", wsdl)
    schema = etree.parse(path).find(".//{http://schemas.xmlsoap.org/wsdl/}types/{%s}schema"
                                    % NS["xs"])
    schema = etree.fromstring(etree.tostring(schema))
    for imp in schema.iter("{%s}import" % NS["xs"]):
        location = imp.get("schemaLocation")
        if location and not urlparse(location).scheme:
            imp.set("schemaLocation", "file://" + os.path.normpath(
                os.path.join(os.path.dirname(path), location)))
    return schema


def build_validator(reference):
    """One XMLSchema holding the SOAP 1.2 envelope, onvif.xsd and the device
    and imaging services' own types."""
    tmp = tempfile.mkdtemp(prefix="onvif-zeep-")
    imports = ['<xs:import namespace="%s" schemaLocation="%s"/>'
               % (NS["env"], "https://www.w3.org/2003/05/soap-envelope")]
    for prefix, wsdl in (("tds", "ver10/device/wsdl/devicemgmt.wsdl"),
                         ("trt", "ver10/media/wsdl/media.wsdl"),
                         ("timg", "ver20/imaging/wsdl/imaging.wsdl")):
        out = os.path.join(tmp, prefix + ".xsd")
        etree.ElementTree(embedded_schema(reference, wsdl)).write(out)
        imports.append('<xs:import namespace="%s" schemaLocation="file://%s"/>'
                       % (NS[prefix], out))
    text = ('<xs:schema xmlns:xs="%s" targetNamespace="urn:onvif-zeep:all" '
            'elementFormDefault="qualified">%s</xs:schema>' % (NS["xs"], "".join(imports)))
    parser = etree.XMLParser()
    parser.resolvers.add(OnvifResolver(reference))
    try:
        return etree.XMLSchema(etree.fromstring(text.encode("utf-8"), parser,
                                                base_url="file://%s/all.xsd" % tmp))
    except etree.XMLSchemaParseError as e:
        fail("the official schemas did not load: %s" % e)


class Checker:
    def __init__(self, reference, url, user, password):
        self.reference = reference
        self.url = url.rstrip("/")
        self.user = user
        self.password = password
        self.validator = build_validator(reference)
        self.history = zeep.plugins.HistoryPlugin(maxlen=1)
        self.transport = OfflineTransport(os.path.join(reference, "ext"), timeout=30,
                                          operation_timeout=30)
        self.settings = zeep.Settings(strict=True, xml_huge_tree=False)
        self.answers = 0
        self.faults = 0
        self.checks = 0

    def client(self, wsdl, wsse=None):
        return zeep.Client(os.path.join(self.reference, "wsdl", wsdl), transport=self.transport,
                           settings=self.settings, wsse=wsse, plugins=[self.history])

    def check(self, ok, text):
        self.checks += 1
        if not ok:
            fail(text)

    def validate_last(self, what, expect):
        """The last answer: its envelope and the first element of its Body
        valid against the schemas, and that element the one expected."""
        received = self.history.last_received
        if not received:
            fail("%s: no answer was recorded" % what)
        envelope = received["envelope"]
        if not self.validator.validate(envelope):
            fail("%s: the envelope is not valid: %s\n%s" % (
                what, self.validator.error_log, etree.tostring(envelope).decode()))
        body = envelope.find("{%s}Body" % NS["env"])
        first = body[0] if body is not None and len(body) else None
        if first is None:
            fail("%s: an empty Body" % what)
        prefix, local = expect.split(":")
        if first.tag != "{%s}%s" % (NS[prefix], local):
            fail("%s: the Body holds %s, not %s" % (what, first.tag, expect))
        # The Body's content is validated laxly above; its first element
        # strictly here, against its own declaration.
        if not self.validator.validate(first):
            fail("%s: %s is not valid: %s\n%s" % (what, expect, self.validator.error_log,
                                                   etree.tostring(first).decode()))
        return first

    def call(self, service, op, expect=None, **kwargs):
        """An operation through zeep, which must parse the answer; then the
        answer validated with lxml."""
        try:
            result = getattr(service, op)(**kwargs)
        except zeep.exceptions.Fault as e:
            fail("%s answered a fault: %s %s" % (op, e.message, e.subcodes))
        except (zeep.exceptions.XMLParseError, zeep.exceptions.ValidationError, ValueError,
                TypeError) as e:
            fail("zeep could not read the answer of %s: %s\n%s" % (op, e, self.last_text()))
        prefix = {NS[p]: p for p in ("tds", "trt", "timg")}[service._binding.name.namespace]
        self.validate_last(op, expect or "%s:%sResponse" % (prefix, op))
        self.answers += 1
        return result

    def fault(self, service, op, subcode, **kwargs):
        """An operation that must be refused with a SOAP fault whose subcodes
        hold subcode; the fault's envelope is validated too."""
        try:
            getattr(service, op)(**kwargs)
        except zeep.exceptions.Fault as e:
            self.validate_last(op + " (fault)", "env:Fault")
            codes = [str(c.localname if hasattr(c, "localname") else c) for c in e.subcodes or []]
            codes = [c.split("}")[-1].split(":")[-1] for c in codes]
            self.check(subcode in codes, "%s: fault subcodes %s lack %s" % (op, codes, subcode))
            self.faults += 1
            return
        fail("%s was not refused (expected %s)" % (op, subcode))

    def last_text(self):
        received = self.history.last_received
        return etree.tostring(received["envelope"]).decode() if received else "(nothing)"

    def device_management(self, dev, dev0, token):
        """The clock, the discovery mode, the scopes, the network and users."""
        # The clock: set to this machine's UTC time (the tokens stay dated
        # right) in a zone one hour east with a summer time not applied.
        now = datetime.datetime.utcnow().replace(microsecond=0)
        stamp = {"Date": {"Year": now.year, "Month": now.month, "Day": now.day},
                 "Time": {"Hour": now.hour, "Minute": now.minute, "Second": now.second}}
        self.call(dev, "SetSystemDateAndTime", DateTimeType="Manual", DaylightSavings=False,
                  TimeZone={"TZ": "CET-1CEST,M3.5.0,M10.5.0/3"}, UTCDateTime=stamp)
        token.offset = datetime.timedelta(0)
        clock = self.call(dev0, "GetSystemDateAndTime")
        utc = clock.UTCDateTime
        self.check(clock.TimeZone.TZ == "CET-1CEST,M3.5.0,M10.5.0/3" and
                   clock.DaylightSavings is False and clock.DateTimeType == "Manual",
                   "GetSystemDateAndTime did not keep the setting: %s" % clock)
        self.check((utc.Date.Year, utc.Date.Month, utc.Date.Day, utc.Time.Hour, utc.Time.Minute,
                    utc.Time.Second) == (now.year, now.month, now.day, now.hour, now.minute,
                                         now.second), "the clock reads %s, not %s" % (utc, now))
        local = clock.LocalDateTime
        later = now + datetime.timedelta(hours=1)
        self.check(local is not None and (local.Date.Day, local.Time.Hour) ==
                   (later.day, later.hour), "the local time is %s" % local)
        self.fault(dev, "SetSystemDateAndTime", "InvalidTimeZone", DateTimeType="Manual",
                   DaylightSavings=True, TimeZone={"TZ": "INVALIDTIMEZONE"}, UTCDateTime=stamp)
        bad = {"Date": {"Year": 2030, "Month": 2, "Day": 30}, "Time": stamp["Time"]}
        self.fault(dev, "SetSystemDateAndTime", "InvalidDateTime", DateTimeType="Manual",
                   DaylightSavings=False, TimeZone={"TZ": "UTC0"}, UTCDateTime=bad)
        self.fault(dev, "SetSystemDateAndTime", "NtpServerUndefined", DateTimeType="NTP",
                   DaylightSavings=False, TimeZone={"TZ": "UTC0"})

        # What the service claims: network and users are read, never set.
        caps = self.call(dev0, "GetServiceCapabilities")
        self.check(caps.System.NetworkConfigNotSupported is True and
                   caps.System.UserConfigNotSupported is True and caps.Network.NTP == 0,
                   "the capabilities claim settings the camera lacks: %s" % caps)

        # The discovery mode, when WS-Discovery runs.
        mode = self.call(dev, "GetDiscoveryMode")
        self.check(mode in ("Discoverable", "NonDiscoverable"), "GetDiscoveryMode: %s" % mode)
        self.check(caps.System.DiscoveryNotSupported is (mode == "NonDiscoverable"),
                   "DiscoveryNotSupported contradicts the mode %s" % mode)
        if mode == "Discoverable":
            self.call(dev, "SetDiscoveryMode", DiscoveryMode="NonDiscoverable")
            self.check(self.call(dev, "GetDiscoveryMode") == "NonDiscoverable",
                       "SetDiscoveryMode NonDiscoverable was not kept")
            self.call(dev, "SetDiscoveryMode", DiscoveryMode="Discoverable")
            self.check(self.call(dev, "GetDiscoveryMode") == "Discoverable",
                       "SetDiscoveryMode Discoverable was not kept")

        # Scopes: the fixed ones stay, the configurable ones follow the calls.
        fixed = [str(s.ScopeItem) for s in self.call(dev, "GetScopes")]
        room = "onvif://www.onvif.org/location/room/lab"
        name = "onvif://www.onvif.org/name/zeep_camera"
        self.call(dev, "SetScopes", Scopes=[room])
        self.call(dev, "AddScopes", ScopeItem=[name])
        scopes = self.call(dev, "GetScopes")
        self.check([(str(s.ScopeItem), s.ScopeDef) for s in scopes] ==
                   [(f, "Fixed") for f in fixed] + [(room, "Configurable"),
                                                    (name, "Configurable")],
                   "GetScopes after SetScopes and AddScopes: %s" % scopes)
        removed = self.call(dev, "RemoveScopes", ScopeItem=[name])
        self.check([str(s) for s in removed] == [name], "RemoveScopes answered %s" % removed)
        self.fault(dev, "RemoveScopes", "FixedScope", ScopeItem=[fixed[0]])
        self.fault(dev, "RemoveScopes", "NoScope", ScopeItem=[name])
        self.check([str(s.ScopeItem) for s in self.call(dev, "GetScopes")] == fixed + [room],
                   "the scopes after the refusals")

        # The network and the users as the simulated camera has them.
        interfaces = self.call(dev, "GetNetworkInterfaces")
        self.check(interfaces[0].IPv4.Config.Manual[0].Address == "127.0.0.1",
                   "GetNetworkInterfaces: %s" % interfaces)
        self.check(self.call(dev, "GetDNS").FromDHCP is False, "GetDNS")
        self.check(self.call(dev, "GetNTP").FromDHCP is False, "GetNTP")
        protocols = self.call(dev, "GetNetworkProtocols")
        port = int(self.url.rsplit(":", 1)[1])
        self.check([(p.Name, p.Enabled, list(p.Port)) for p in protocols] ==
                   [("HTTP", True, [port])], "GetNetworkProtocols: %s" % protocols)
        self.call(dev, "GetNetworkDefaultGateway")
        users = self.call(dev, "GetUsers")
        # The client's own user among them (a CI serve has a viewer too);
        # no password ever.
        self.check((self.user, "Administrator") in [(u.Username, u.UserLevel) for u in users]
                   and all(u.Password is None for u in users), "GetUsers: %s" % users)
        self.fault(dev, "SetNTP", "ActionNotSupported", FromDHCP=False)

    def restarts(self, dev, img):
        """Reboot and the factory defaults, last: they undo what came before."""
        reboot = self.call(dev, "SystemReboot")
        self.check(bool(reboot), "SystemReboot answered no message")
        self.call(img, "GetImagingSettings", VideoSourceToken=SOURCE)
        fixed = [str(s.ScopeItem) for s in self.call(dev, "GetScopes")
                 if s.ScopeDef == "Fixed"]
        self.call(dev, "SetSystemFactoryDefault", FactoryDefault="Soft")
        self.check(self.call(dev, "GetHostname").Name == "camera-under-test",
                   "a soft factory default forgot the hostname")
        self.call(dev, "SetSystemFactoryDefault", FactoryDefault="Hard")
        self.check(self.call(dev, "GetHostname").Name == "sensorctl",
                   "a hard factory default kept the hostname")
        self.check([str(s.ScopeItem) for s in self.call(dev, "GetScopes")] == fixed,
                   "the factory default kept configurable scopes")
        self.call(img, "GetImagingSettings", VideoSourceToken=SOURCE)

    def run(self):
        device_binding = "{%s}DeviceBinding" % NS["tds"]
        imaging_binding = "{%s}ImagingBinding" % NS["timg"]
        device_url = self.url + "/onvif/device_service"

        # The clock first, without credentials, to date the tokens.
        anon = self.client("ver10/device/wsdl/devicemgmt.wsdl")
        dev0 = anon.create_service(device_binding, device_url)
        clock = self.call(dev0, "GetSystemDateAndTime")
        utc = clock.UTCDateTime
        device_now = datetime.datetime(utc.Date.Year, utc.Date.Month, utc.Date.Day,
                                       utc.Time.Hour, utc.Time.Minute, utc.Time.Second)
        offset = device_now - datetime.datetime.utcnow()
        token = OffsetUsernameToken(self.user, self.password, offset)
        self.fault(dev0, "GetDeviceInformation", "NotAuthorized")
        # What a client may ask before it authenticates.
        self.call(dev0, "GetServices", IncludeCapability=False)
        self.call(dev0, "GetCapabilities")
        self.call(dev0, "GetServiceCapabilities")
        self.call(dev0, "GetWsdlUrl")
        anon_name = self.call(dev0, "GetHostname")
        self.check(bool(anon_name.Name), "GetHostname answered no name")
        reference = self.call(dev0, "GetEndpointReference")
        self.check(str(reference.GUID).startswith("urn:uuid:"),
                   "GetEndpointReference answered %s" % reference.GUID)

        dev = self.client("ver10/device/wsdl/devicemgmt.wsdl", token).create_service(
            device_binding, device_url)
        self.call(dev, "GetSystemDateAndTime")
        info = self.call(dev, "GetDeviceInformation")
        self.check(bool(info.Manufacturer) and bool(info.Model), "GetDeviceInformation is empty")
        scopes = self.call(dev, "GetScopes")
        self.check(len(scopes) > 0, "GetScopes answered no scope")

        # Capabilities: all, each category, and two at once.
        caps = self.call(dev, "GetCapabilities")
        self.check(caps.Device is not None and caps.Imaging is not None and
                   caps.Media is not None, "GetCapabilities lacks a category")
        for category in ("All", "Device", "Media", "Imaging"):
            self.call(dev, "GetCapabilities", Category=[category])
        two = self.call(dev, "GetCapabilities", Category=["Device", "Imaging"])
        self.check(two.Device is not None and two.Imaging is not None and two.Media is None,
                   "GetCapabilities of Device and Imaging answered %s" % two)
        self.fault(dev, "GetCapabilities", "NoSuchService", Category=["PTZ"])

        # Services, with and without their capabilities.
        for include in (False, True):
            services = self.call(dev, "GetServices", IncludeCapability=include)
            found = {s.Namespace: s for s in services}
            self.check(NS["tds"] in found and NS["timg"] in found,
                       "GetServices lacks the device or imaging service")
            for s in services:
                self.check((s.Capabilities is not None) == include,
                           "GetServices IncludeCapability %s: %s" % (include, s.Namespace))
        imaging_url = found[NS["timg"]].XAddr
        self.check(imaging_url.startswith(self.url + "/"),
                   "the imaging XAddr %s is not on %s" % (imaging_url, self.url))
        versions = {ns: (s.Version.Major, s.Version.Minor) for ns, s in found.items()}
        # The versions of the service WSDLs these answers are checked against.
        self.check(versions[NS["timg"]] == (19, 6),
                   "the imaging service announces %s.%s" % versions[NS["timg"]])
        self.call(dev, "SetHostname", Name="camera-under-test")
        self.check(self.call(dev, "GetHostname").Name == "camera-under-test",
                   "SetHostname was not kept")
        self.fault(dev, "SetHostname", "InvalidHostname", Name="not a name")
        self.device_management(dev, dev0, token)

        # The media service's two operations, which lead a client to the source.
        media = self.client("ver10/media/wsdl/media.wsdl", token).create_service(
            "{%s}MediaBinding" % NS["trt"], found[NS["trt"]].XAddr)
        profiles = self.call(media, "GetProfiles")
        sources = self.call(media, "GetVideoSources")
        self.check([s.token for s in sources] == [SOURCE] and
                   profiles[0].VideoSourceConfiguration.SourceToken == SOURCE,
                   "the media service does not lead to %s" % SOURCE)

        img = self.client("ver20/imaging/wsdl/imaging.wsdl", token).create_service(
            imaging_binding, imaging_url)
        self.call(img, "GetServiceCapabilities")
        # Each service's capabilities are open to anybody too.
        self.call(self.client("ver10/media/wsdl/media.wsdl").create_service(
            "{%s}MediaBinding" % NS["trt"], found[NS["trt"]].XAddr), "GetServiceCapabilities")
        self.call(self.client("ver20/imaging/wsdl/imaging.wsdl").create_service(
            imaging_binding, imaging_url), "GetServiceCapabilities")
        options = self.call(img, "GetOptions", VideoSourceToken=SOURCE)
        settings = self.call(img, "GetImagingSettings", VideoSourceToken=SOURCE)
        # Every field written back as it was read, then one changed.
        self.call(img, "SetImagingSettings", VideoSourceToken=SOURCE, ImagingSettings=settings,
                  ForcePersistence=False)
        if options.Brightness is not None:
            target = options.Brightness.Min + (options.Brightness.Max - options.Brightness.Min) / 2
            self.call(img, "SetImagingSettings", VideoSourceToken=SOURCE,
                      ImagingSettings={"Brightness": target})
            again = self.call(img, "GetImagingSettings", VideoSourceToken=SOURCE)
            self.check(abs(again.Brightness - target) <= 1,
                       "Brightness %s read back as %s" % (target, again.Brightness))
        self.fault(img, "SetImagingSettings", "SettingsInvalid", VideoSourceToken=SOURCE,
                   ImagingSettings={"Brightness": 1e9})
        self.fault(img, "GetImagingSettings", "NoSource", VideoSourceToken="NoSuchSource")

        # Focus.
        moves = self.call(img, "GetMoveOptions", VideoSourceToken=SOURCE)
        if moves.Continuous is not None:
            self.call(img, "Move", VideoSourceToken=SOURCE, Focus={"Continuous": {"Speed": 0.5}})
            self.call(img, "GetStatus", VideoSourceToken=SOURCE)
            self.call(img, "Stop", VideoSourceToken=SOURCE)
        if moves.Absolute is not None:
            self.call(img, "Move", VideoSourceToken=SOURCE,
                      Focus={"Absolute": {"Position": moves.Absolute.Position.Min}})
        if moves.Relative is not None:
            self.call(img, "Move", VideoSourceToken=SOURCE, Focus={"Relative": {"Distance": 1}})
        status = self.call(img, "GetStatus", VideoSourceToken=SOURCE)
        if moves.Absolute is not None:
            self.check(status.FocusStatus20 is not None, "GetStatus has no focus status")
            mode = self.call(img, "GetImagingSettings", VideoSourceToken=SOURCE).Focus
            self.check(mode is not None and mode.AutoFocusMode == "MANUAL",
                       "after a focus move the focus mode is %s" % (mode and mode.AutoFocusMode))

        # Presets.
        presets = self.call(img, "GetPresets", VideoSourceToken=SOURCE)
        self.check(len(presets) > 0, "GetPresets answered none")
        self.call(img, "SetCurrentPreset", VideoSourceToken=SOURCE, PresetToken=presets[-1].token)
        current = self.call(img, "GetCurrentPreset", VideoSourceToken=SOURCE)
        self.check(current is not None and current.token == presets[-1].token
                   and current.Name == presets[-1].Name,
                   "GetCurrentPreset answered %s" % current)
        self.fault(img, "SetCurrentPreset", "NoImagingPreset", VideoSourceToken=SOURCE,
                   PresetToken="NoSuchPreset")
        self.call(img, "SetCurrentPreset", VideoSourceToken=SOURCE, PresetToken=presets[0].token)

        self.restarts(dev, img)

        print("onvif_zeep: %d answers and %d faults parsed by zeep and valid against the "
              "official schemas; %d further checks passed" % (self.answers, self.faults,
                                                               self.checks))


MOTOR_LENS = "(sensor=IMX327)(lens=motor)(max_scheme=4)(isInfrared=1)"


def start_serve(sensorctl, user, password, detail=MOTOR_LENS, extra=()):
    """`sensorctl serve` on a free loopback port, as scripts/ci-onvif.sh
    starts it (a camera with a motorised lens unless detail names another,
    and with extra options); answers the process, its URL and its log."""
    env = dict(os.environ)
    env.setdefault("SENSORCTL_DATA", os.path.join(ROOT, "data", "device"))
    log = tempfile.TemporaryFile(mode="w+")
    proc = subprocess.Popen(
        # WS-Discovery on loopback too, on a port of its own: tests never
        # listen beyond 127.0.0.1.
        [sensorctl, "serve", "--port", "0", "--time-scale", "0.1", "--detail", detail,
         "--onvif-user", user, "--onvif-password", password, "--discovery-bind", "127.0.0.1",
         "--discovery-port", "0"] + list(extra), stdout=log, stderr=subprocess.STDOUT, env=env)
    deadline = time.monotonic() + 30
    while time.monotonic() < deadline:
        log.seek(0)
        found = re.search(r"listening on (http://127\.0\.0\.1:\d+)/", log.read())
        if found:
            return proc, found.group(1), log
        if proc.poll() is not None:
            break
        time.sleep(0.1)
    log.seek(0)
    output = log.read()
    proc.kill()
    proc.wait()
    fail("sensorctl serve did not announce its port:\n" + output)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--sensorctl", help="start this sensorctl's serve")
    parser.add_argument("--url", help="a running serve, http://127.0.0.1:PORT")
    parser.add_argument("--user", default="admin")
    parser.add_argument("--password")
    args = parser.parse_args()
    if bool(args.sensorctl) == bool(args.url):
        parser.error("give either --sensorctl or --url")
    reference = reference_dir()
    proc = None
    log = None
    password = args.password or "zeep-" + secrets.token_hex(9)
    url = args.url
    if args.sensorctl:
        proc, url, log = start_serve(args.sensorctl, args.user, password)
    elif not args.password:
        parser.error("--url needs --password")
    try:
        Checker(reference, url, args.user, password).run()
    finally:
        if proc is not None:
            proc.terminate()
            try:
                status = proc.wait(timeout=10)
            except subprocess.TimeoutExpired:
                proc.kill()
                status = proc.wait()
            if status != 0:
                log.seek(0)
                fail("sensorctl serve ended with %s:\n%s" % (status, log.read()[-4000:]))


if __name__ == "__main__":
    main()
