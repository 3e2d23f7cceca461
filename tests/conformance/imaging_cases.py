#!/usr/bin/python3
"""ONVIF's published Imaging device conformance cases, run against
`sensorctl serve` step by step with Debian's python3-zeep built from the
official WSDLs; every answer and fault is validated with python3-lxml
against the official schemas (the Checker of onvif_zeep.py), and every
SetImagingSettings request this script builds is validated too.

Values are read from the raw XML of each answer (zeep leaves the extension
elements of the settings and options unparsed), and requests that change
settings are built from that XML, so nothing is lost on the way back.

  imaging_cases.py --sensorctl PATH [--case TITLE]...
                                      each case starts its own serve on a free
                                      loopback port with fresh credentials
  imaging_cases.py --url http://127.0.0.1:PORT --user U --password P [--case TITLE]...
                                      every case against a server already running
  imaging_cases.py --list          the cases' titles, IDs and ctest names

Without --case every case runs; --except TITLE leaves one out. Exit status
0: every case passed; 1: a case failed; 77: python3-zeep or python3-lxml is
not installed.
"""
import argparse
import copy
import datetime
import os
import re
import secrets
import subprocess
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import onvif_zeep as oz  # noqa: E402  (exits 77 without zeep or lxml)
import zeep.exceptions  # noqa: E402
from lxml import etree  # noqa: E402

NS = oz.NS
TT = "{%s}" % NS["tt"]
# A token no camera hands out, within the 64 readable characters the
# ONVIF conformance cases' annex allows.
INVALID_TOKEN = "NoSuchVideoSource_imaging_cases"


class CaseFailed(Exception):
    pass


def fail(text):
    raise CaseFailed(text)


# The order of the children of each element of ImagingSettings20 (onvif.xsd),
# keyed by the element's path, so that an element added to a request lands
# where the schema wants it.
ORDER = {
    "": ["BacklightCompensation", "Brightness", "ColorSaturation", "Contrast", "Exposure",
         "Focus", "IrCutFilter", "Sharpness", "WideDynamicRange", "WhiteBalance", "Extension"],
    "BacklightCompensation": ["Mode", "Level"],
    "Exposure": ["Mode", "Priority", "Window", "MinExposureTime", "MaxExposureTime", "MinGain",
                 "MaxGain", "MinIris", "MaxIris", "ExposureTime", "Gain", "Iris"],
    "Focus": ["AutoFocusMode", "DefaultSpeed", "NearLimit", "FarLimit", "Extension"],
    "WideDynamicRange": ["Mode", "Level"],
    "WhiteBalance": ["Mode", "CrGain", "CbGain", "Extension"],
    "Extension": ["ImageStabilization", "Extension"],
    "Extension/ImageStabilization": ["Mode", "Level", "Extension"],
    "Extension/Extension": ["IrCutFilterAutoAdjustment", "Extension"],
    "Extension/Extension/IrCutFilterAutoAdjustment": ["BoundaryType", "BoundaryOffset",
                                                      "ResponseTime", "Extension"],
    "Extension/Extension/Extension": ["ToneCompensation", "Defogging", "NoiseReduction",
                                      "Extension"],
    "Extension/Extension/Extension/ToneCompensation": ["Mode", "Level", "Extension"],
    "Extension/Extension/Extension/Defogging": ["Mode", "Level", "Extension"],
    "Extension/Extension/Extension/NoiseReduction": ["Level", "Extension"],
}

# Each setting of ImagingSettings20 beside the option of ImagingOptions20
# that allows it; a setting whose option the camera does not offer is left
# out of every request ("If options for imaging setting were skipped in
# GetOptionsResponse message, then they shall be skipped").
SETTING_OPTION = [
    ("BacklightCompensation", "BacklightCompensation"),
    ("BacklightCompensation/Level", "BacklightCompensation/Level"),
    ("Brightness", "Brightness"),
    ("ColorSaturation", "ColorSaturation"),
    ("Contrast", "Contrast"),
    ("Exposure", "Exposure"),
    ("Exposure/Priority", "Exposure/Priority"),
    ("Exposure/MinExposureTime", "Exposure/MinExposureTime"),
    ("Exposure/MaxExposureTime", "Exposure/MaxExposureTime"),
    ("Exposure/MinGain", "Exposure/MinGain"),
    ("Exposure/MaxGain", "Exposure/MaxGain"),
    ("Exposure/MinIris", "Exposure/MinIris"),
    ("Exposure/MaxIris", "Exposure/MaxIris"),
    ("Exposure/ExposureTime", "Exposure/ExposureTime"),
    ("Exposure/Gain", "Exposure/Gain"),
    ("Exposure/Iris", "Exposure/Iris"),
    ("Focus", "Focus"),
    ("Focus/DefaultSpeed", "Focus/DefaultSpeed"),
    ("Focus/NearLimit", "Focus/NearLimit"),
    ("Focus/FarLimit", "Focus/FarLimit"),
    ("IrCutFilter", "IrCutFilterModes"),
    ("Sharpness", "Sharpness"),
    ("WideDynamicRange", "WideDynamicRange"),
    ("WideDynamicRange/Level", "WideDynamicRange/Level"),
    ("WhiteBalance", "WhiteBalance"),
    ("WhiteBalance/CrGain", "WhiteBalance/YrGain"),
    ("WhiteBalance/CbGain", "WhiteBalance/YbGain"),
    ("Extension/ImageStabilization", "Extension/ImageStabilization"),
    ("Extension/ImageStabilization/Level", "Extension/ImageStabilization/Level"),
    ("Extension/Extension/IrCutFilterAutoAdjustment",
     "Extension/Extension/IrCutFilterAutoAdjustment"),
    ("Extension/Extension/Extension/ToneCompensation",
     "Extension/Extension/Extension/ToneCompensationOptions"),
    ("Extension/Extension/Extension/Defogging",
     "Extension/Extension/Extension/DefoggingOptions"),
    ("Extension/Extension/Extension/NoiseReduction",
     "Extension/Extension/Extension/NoiseReductionOptions"),
]

# The options bounded by Min and Max that GETOPTIONS checks (its FAIL list).
OPTION_RANGES = [
    "BacklightCompensation/Level", "Brightness", "ColorSaturation", "Contrast",
    "Exposure/MinExposureTime", "Exposure/MaxExposureTime", "Exposure/MinGain",
    "Exposure/MaxGain", "Exposure/MinIris", "Exposure/MaxIris", "Exposure/ExposureTime",
    "Exposure/Gain", "Exposure/Iris", "Focus/DefaultSpeed", "Focus/NearLimit", "Focus/FarLimit",
    "Sharpness", "WideDynamicRange/Level", "WhiteBalance/YrGain", "WhiteBalance/YbGain",
]

# The settings with a range among the options, as the consistency case pairs
# them (WhiteBalance's CrGain is bounded by YrGain, CbGain by YbGain).
SETTING_RANGES = [
    ("BacklightCompensation/Level", "BacklightCompensation/Level"),
    ("Brightness", "Brightness"), ("ColorSaturation", "ColorSaturation"),
    ("Contrast", "Contrast"),
    ("Exposure/MinExposureTime", "Exposure/MinExposureTime"),
    ("Exposure/MaxExposureTime", "Exposure/MaxExposureTime"),
    ("Exposure/MinGain", "Exposure/MinGain"), ("Exposure/MaxGain", "Exposure/MaxGain"),
    ("Exposure/MinIris", "Exposure/MinIris"), ("Exposure/MaxIris", "Exposure/MaxIris"),
    ("Exposure/ExposureTime", "Exposure/ExposureTime"), ("Exposure/Gain", "Exposure/Gain"),
    ("Exposure/Iris", "Exposure/Iris"),
    ("Focus/DefaultSpeed", "Focus/DefaultSpeed"), ("Focus/NearLimit", "Focus/NearLimit"),
    ("Focus/FarLimit", "Focus/FarLimit"), ("Sharpness", "Sharpness"),
    ("WideDynamicRange/Level", "WideDynamicRange/Level"),
    ("WhiteBalance/CrGain", "WhiteBalance/YrGain"),
    ("WhiteBalance/CbGain", "WhiteBalance/YbGain"),
    ("Extension/ImageStabilization/Level", "Extension/ImageStabilization/Level"),
]


def steps(path):
    return [p for p in path.split("/") if p]


def find(el, path):
    """The element at path below el (tt: names), or None."""
    for step in steps(path):
        if el is None:
            return None
        el = el.find(TT + step)
    return el


def find_all(el, path):
    parts = steps(path)
    parent = find(el, "/".join(parts[:-1]))
    return [] if parent is None else parent.findall(TT + parts[-1])


def text(el, path):
    found = find(el, path)
    return None if found is None else (found.text or "").strip()


def texts(el, path):
    return [(e.text or "").strip() for e in find_all(el, path)]


def number(el, path):
    value = text(el, path)
    return None if value is None else float(value)


def span(options, path):
    """(Min, Max) of a range option, or None when the camera offers none."""
    found = find(options, path)
    if found is None:
        return None
    low, high = text(found, "Min"), text(found, "Max")
    if low is None or high is None:
        fail("the option %s lacks Min or Max" % path)
    return float(low), float(high)


def duration_seconds(value):
    found = re.fullmatch(r"P(?:(\d+)D)?(?:T(?:(\d+)H)?(?:(\d+)M)?(?:(\d+(?:\.\d+)?)S)?)?", value)
    if not found or value in ("P", "PT"):
        fail("%s is not a duration this check reads" % value)
    days, hours, minutes, seconds = (float(g) if g else 0.0 for g in found.groups())
    return ((days * 24 + hours) * 60 + minutes) * 60 + seconds


def ensure(root, path):
    """The element at path below root, made (with its parents) where the
    schema orders it when missing."""
    el = root
    done = []
    for step in steps(path):
        child = el.find(TT + step)
        if child is None:
            order = ORDER.get("/".join(done))
            if order is None or step not in order:
                fail("the request cannot place %s" % path)
            child = etree.Element(TT + step)
            later = [c for c in el if isinstance(c.tag, str) and c.tag.startswith(TT) and
                     c.tag[len(TT):] in order and
                     order.index(c.tag[len(TT):]) > order.index(step)]
            if later:
                later[0].addprevious(child)
            else:
                el.append(child)
        el = child
        done.append(step)
    return el


def format_number(value):
    return ("%d" % value) if float(value).is_integer() else repr(float(value))


def other_number(low, high, current):
    """A value in [low, high] other than current: a round one when the range
    allows it, so that any camera can keep it exactly."""
    width = high - low
    candidates = []
    for share in (0.5, 0.25, 0.75, 0.0, 1.0):
        value = low + width * share
        if width >= 4 and low.is_integer() and high.is_integer():
            value = float(round(value))
        else:
            value = round(value, 3)
        candidates.append(min(max(value, low), high))
    for value in candidates:
        if current is None or abs(value - current) > same_tolerance(current):
            return value
    fail("no value in [%s, %s] differs from %s" % (low, high, current))


def same_tolerance(value):
    # xs:float keeps about seven significant digits.
    return max(abs(value) * 1e-6, 1e-6)


def same_number(a, b):
    return a is not None and b is not None and abs(a - b) <= same_tolerance(max(abs(a), abs(b)))


class Camera:
    """The services of one serve, reached as the ONVIF test cases' client
    reaches them: the device service first, the others at the addresses
    GetServices names."""

    def __init__(self, checker):
        self.c = checker
        self.warnings = []
        self.other_faults = []
        self.any_faults = []
        device_url = checker.url + "/onvif/device_service"
        device_binding = "{%s}DeviceBinding" % NS["tds"]
        anon = checker.client("ver10/device/wsdl/devicemgmt.wsdl").create_service(
            device_binding, device_url)
        clock = checker.call(anon, "GetSystemDateAndTime").UTCDateTime
        device_now = datetime.datetime(clock.Date.Year, clock.Date.Month, clock.Date.Day,
                                       clock.Time.Hour, clock.Time.Minute, clock.Time.Second)
        self.token = oz.OffsetUsernameToken(checker.user, checker.password,
                                            device_now - datetime.datetime.utcnow())
        self.device_client = checker.client("ver10/device/wsdl/devicemgmt.wsdl", self.token)
        self.dev = self.device_client.create_service(device_binding, device_url)
        services = checker.call(self.dev, "GetServices", IncludeCapability=False)
        self.xaddr = {s.Namespace: s.XAddr for s in services}
        for ns in (NS["timg"], NS["trt"]):
            if ns not in self.xaddr:
                fail("GetServices does not name the service %s" % ns)
        self.imaging_client = checker.client("ver20/imaging/wsdl/imaging.wsdl", self.token)
        self.img = self.imaging_client.create_service("{%s}ImagingBinding" % NS["timg"],
                                                      self.xaddr[NS["timg"]])
        self.media = checker.client("ver10/media/wsdl/media.wsdl", self.token).create_service(
            "{%s}MediaBinding" % NS["trt"], self.xaddr[NS["trt"]])
        self.settings_type = self.imaging_client.get_type(TT + "ImagingSettings20")

    def warn(self, text_):
        self.warnings.append(text_)
        print("  warning: " + text_)

    def call(self, service, op, **kwargs):
        """An operation answered without a fault, parsed by zeep and valid
        against the schemas; answers zeep's result and the answer's element."""
        try:
            result = getattr(service, op)(**kwargs)
        except zeep.exceptions.Fault as e:
            fail("%s answered the fault %s: %s" % (op, self.last_chain(), e.message))
        except (zeep.exceptions.XMLParseError, zeep.exceptions.ValidationError, ValueError,
                TypeError) as e:
            fail("zeep could not read the answer of %s: %s\n%s" % (op, e, self.c.last_text()))
        prefix = {NS[p]: p for p in ("tds", "trt", "timg")}[service._binding.name.namespace]
        try:
            element = self.c.validate_last(op, "%s:%sResponse" % (prefix, op))
        except SystemExit:
            fail("%s: the answer is not valid (see above)" % op)
        self.c.answers += 1
        return result, element

    def last_chain(self):
        received = self.c.history.last_received
        try:
            return fault_chain(received["envelope"].find("{%s}Body" % NS["env"])[0])
        except (CaseFailed, TypeError, IndexError):
            return "(unreadable)"

    def fault(self, service, op, preferred, others_ok=True, also=(), **kwargs):
        """An operation the camera must refuse with a SOAP 1.2 fault, valid
        against the schemas. preferred (and each of also) is a code chain
        such as "env:Sender/ter:InvalidArgVal/ter:NoSource"; another fault is
        accepted where the ONVIF test case says so, and reported. preferred
        None: the case asks for a SOAP 1.2 fault and names none."""
        try:
            getattr(service, op)(**kwargs)
        except zeep.exceptions.Fault:
            try:
                body = self.c.validate_last(op + " (fault)", "env:Fault")
            except SystemExit:
                fail("%s: the fault is not valid (see above)" % op)
            chain = fault_chain(body)
            self.c.faults += 1
            if preferred is None:
                self.any_faults.append("%s: %s" % (op, chain))
                print("  %s refused with %s (any SOAP 1.2 fault passes)" % (op, chain))
                return chain
            if chain in (preferred,) + tuple(also):
                return chain
            if not others_ok:
                fail("%s: the fault is %s, not %s" % (op, chain, preferred))
            self.other_faults.append("%s: %s (preferred %s)" % (op, chain, preferred))
            print("  note: %s answered %s; the ONVIF test case prefers %s"
                  % (op, chain, preferred))
            return chain
        except (zeep.exceptions.XMLParseError, zeep.exceptions.ValidationError) as e:
            fail("%s: zeep could not read the answer: %s\n%s" % (op, e, self.c.last_text()))
        fail("%s was answered without a fault (expected %s)" % (op, preferred))

    # Steps the procedures share.

    def video_sources(self):
        """HelperGetAndValidateVideoSources: the video sources with imaging."""
        if "http://www.onvif.org/ver10/deviceIO/wsdl" in self.xaddr:
            fail("the camera offers a Device IO service, whose GetVideoSources this check "
                 "does not read")
        _, answer = self.call(self.media, "GetVideoSources")
        tokens = [vs.get("token") for vs in answer.findall("{%s}VideoSources" % NS["trt"])]
        if not tokens:
            fail("GetVideoSources answered no video source")
        if len(tokens) == 1:
            return tokens
        found = []
        for token in tokens:
            try:
                self.img.GetOptions(VideoSourceToken=token)
            except zeep.exceptions.Fault:
                try:
                    self.c.validate_last("GetOptions (fault)", "env:Fault")
                except SystemExit:
                    fail("GetOptions: the fault is not valid (see above)")
                chain = fault_chain(self.c.history.last_received["envelope"].find(
                    "{%s}Body" % NS["env"])[0])
                if chain != "env:Receiver/ter:ActionNotSupported/ter:NoImagingForSource":
                    fail("GetOptions of %s answered %s" % (token, chain))
                continue
            self.c.validate_last("GetOptions", "timg:GetOptionsResponse")
            found.append(token)
        if not found:
            fail("no video source has imaging")
        return found

    def options(self, source):
        return self.call(self.img, "GetOptions", VideoSourceToken=source)[1].find(
            "{%s}ImagingOptions" % NS["timg"])

    def settings(self, source):
        return self.call(self.img, "GetImagingSettings", VideoSourceToken=source)[1].find(
            "{%s}ImagingSettings" % NS["timg"])

    def request(self, settings, options):
        """A copy of settings to send, without the settings whose options the
        camera does not offer."""
        settings = copy.deepcopy(settings)
        for setting, option in SETTING_OPTION:
            if find(options, option) is None:
                for el in find_all(settings, setting):
                    el.getparent().remove(el)
        return settings

    def set_settings(self, source, settings, force=None, refused=None):
        """SetImagingSettings with settings (an lxml ImagingSettings), the
        request validated against the schemas before the answer is read."""
        kwargs = {"VideoSourceToken": source,
                  "ImagingSettings": self.settings_type.parse_xmlelement(
                      settings, self.imaging_client.wsdl.types)}
        if force is not None:
            kwargs["ForcePersistence"] = force
        if refused:
            chain = self.fault(self.img, "SetImagingSettings", refused, **kwargs)
        else:
            self.call(self.img, "SetImagingSettings", **kwargs)
            chain = None
        sent = self.c.history.last_sent["envelope"].find("{%s}Body" % NS["env"])[0]
        if not self.c.validator.validate(sent):
            fail("this check sent an invalid SetImagingSettings: %s\n%s" % (
                self.c.validator.error_log, etree.tostring(sent).decode()))
        return chain


def fault_chain(body):
    """env:Fault's Code, Value and Subcode values as prefix:name text with the
    prefixes of NS, read from the XML (an unknown namespace stays visible)."""
    names = {v: k for k, v in NS.items()}
    chain = []
    code = body.find("{%s}Code" % NS["env"])
    while code is not None:
        value = code.find("{%s}Value" % NS["env"])
        if value is None:
            fail("a fault code without a Value")
        qname = (value.text or "").strip()
        prefix, _, local = qname.rpartition(":")
        ns = value.nsmap.get(prefix or None)
        chain.append("%s:%s" % (names.get(ns, "{%s}" % ns), local))
        code = code.find("{%s}Subcode" % NS["env"])
    return "/".join(chain)


# The cases, in the order ONVIF publishes them in.

def get_imaging_settings(cam):
    for source in cam.video_sources():
        cam.settings(source)


def get_options(cam):
    for source in cam.video_sources():
        options = cam.options(source)
        for path in OPTION_RANGES:
            bounds = span(options, path)
            if bounds and bounds[0] > bounds[1]:
                fail("GetOptions: %s has Min %s above Max %s" % ((path,) + bounds))
        for iris in ("Exposure/MinIris", "Exposure/MaxIris", "Exposure/Iris"):
            bounds = span(options, iris)
            if bounds and bounds[0] < 0:
                cam.warn("GetOptions: %s.Min is %s, below 0" % (iris, bounds[0]))
        af_modes = find(options, "Focus/Extension/AFModes")
        if af_modes is not None:
            values = (af_modes.text or "").split()
            if any(v != "OnceAfterMove" for v in values):
                fail("GetOptions: Focus.Extension.AFModes holds %s" % values)
            if "AUTO" not in texts(options, "Focus/AutoFocusModes"):
                fail("GetOptions: AFModes without AutoFocusModes AUTO")
        exposure = texts(options, "Exposure/Mode")
        if exposure == ["MANUAL"]:
            for extra in ("Priority", "Window", "MinExposureTime", "MaxExposureTime",
                          "MinGain", "MaxGain", "MinIris", "MaxIris"):
                if find(options, "Exposure/" + extra) is not None:
                    fail("GetOptions: only MANUAL exposure, yet Exposure.%s" % extra)
        if exposure == ["AUTO"]:
            for extra in ("ExposureTime", "Gain", "Iris"):
                if find(options, "Exposure/" + extra) is not None:
                    fail("GetOptions: only AUTO exposure, yet Exposure.%s" % extra)
        if texts(options, "BacklightCompensation/Mode") == ["OFF"] and \
                find(options, "BacklightCompensation/Level") is not None:
            fail("GetOptions: only BacklightCompensation OFF, yet a Level")
        focus = texts(options, "Focus/AutoFocusModes")
        if focus == ["MANUAL"]:
            for extra in ("NearLimit", "FarLimit"):
                if find(options, "Focus/" + extra) is not None:
                    fail("GetOptions: only MANUAL focus, yet Focus.%s" % extra)
        if focus == ["AUTO"] and find(options, "Focus/DefaultSpeed") is not None:
            fail("GetOptions: only AUTO focus, yet Focus.DefaultSpeed")
        if texts(options, "WhiteBalance/Mode") == ["AUTO"]:
            for extra in ("YrGain", "YbGain"):
                if find(options, "WhiteBalance/" + extra) is not None:
                    fail("GetOptions: only AUTO white balance, yet WhiteBalance.%s" % extra)
        if texts(options, "WideDynamicRange/Mode") == ["OFF"] and \
                find(options, "WideDynamicRange/Level") is not None:
            fail("GetOptions: only WideDynamicRange OFF, yet a Level")


def canonical(settings):
    return etree.tostring(settings, method="c14n")


def set_invalid_settings(cam):
    for source in cam.video_sources():
        options = cam.options(source)
        before = cam.settings(source)
        request = cam.request(before, options)
        changed = []
        # Every setting with a range offered, set beyond its Max by the
        # range's width and one more.
        for setting, option in SETTING_RANGES:
            bounds = span(options, option)
            if bounds is None:
                continue
            ensure(request, setting).text = format_number(
                bounds[1] + (bounds[1] - bounds[0]) + 1)
            changed.append(setting)
        response_range = find(options, "Extension/Extension/IrCutFilterAutoAdjustment/"
                                       "ResponseTimeRange/Max")
        if response_range is not None:
            seconds = duration_seconds(response_range.text.strip())
            for adjustment in find_all(request, "Extension/Extension/IrCutFilterAutoAdjustment"):
                found = adjustment.find(TT + "ResponseTime")
                if found is not None:
                    found.text = "PT%dS" % (seconds * 2 + 1)
                    changed.append("IrCutFilterAutoAdjustment/ResponseTime")
        if not changed:
            print("  no setting can be made invalid: steps 7-11 skipped")
            continue
        cam.set_settings(source, request, force=False,
                         refused="env:Sender/ter:InvalidArgVal/ter:SettingsInvalid")
        after = cam.settings(source)
        if canonical(after) != canonical(before):
            fail("the refused SetImagingSettings changed the settings:\nbefore %s\nafter  %s"
                 % (canonical(before).decode(), canonical(after).decode()))


def invalid_token(operation, **kwargs):
    def run(cam):
        if INVALID_TOKEN in cam.video_sources():
            fail("the camera has a video source named %s" % INVALID_TOKEN)
        cam.fault(cam.img, operation, "env:Sender/ter:InvalidArgVal/ter:NoSource",
                  VideoSourceToken=INVALID_TOKEN, **kwargs)
    return run


def invalid_token_or_unsupported(operation):
    def run(cam):
        if INVALID_TOKEN in cam.video_sources():
            fail("the camera has a video source named %s" % INVALID_TOKEN)
        cam.fault(cam.img, operation, "env:Sender/ter:InvalidArgVal/ter:NoSource",
                  also=("env:Receiver/ter:ActionNotSupported",),
                  VideoSourceToken=INVALID_TOKEN)
    return run


def set_invalid_settings_token(cam):
    if INVALID_TOKEN in cam.video_sources():
        fail("the camera has a video source named %s" % INVALID_TOKEN)
    source = cam.video_sources()[0]
    # Settings valid in themselves, for a source that does not exist.
    settings = cam.request(cam.settings(source), cam.options(source))
    cam.set_settings(INVALID_TOKEN, settings,
                     refused="env:Sender/ter:InvalidArgVal/ter:NoSource")


class Changes:
    """The change-and-restore steps of the SetImagingSettings cases."""

    def __init__(self, cam, source, options, initial):
        self.cam = cam
        self.source = source
        self.options = options
        self.initial = initial
        self.tried = []
        self.failures = []

    def step(self, what, body):
        """One change-and-restore; a failure is kept and the next setting
        tried, since each request carries every initial setting anyway."""
        try:
            body()
        except CaseFailed as e:
            self.failures.append(str(e))
            print("  %s: FAILED: %s" % (what, e))

    def finish(self, kind):
        print("  %d %s changed and restored" % (len(self.tried), kind))
        if self.failures:
            fail("%d of %d settings failed:\n    %s" % (
                len(self.failures), len(self.failures) + len(self.tried),
                "\n    ".join(self.failures)))

    def apply(self, what, values, applied=None):
        self.step(what, lambda: self.change(what, values, applied))

    def change(self, what, values, applied):
        """values: path -> text set in the request (the other settings from
        the initial answer); applied: path -> predicate of the text read back
        (equality by default)."""
        cam, source = self.cam, self.source
        request = cam.request(self.initial, self.options)
        for path, value in values.items():
            ensure(request, path).text = value
        cam.set_settings(source, request)
        now = cam.settings(source)
        for path, value in values.items():
            got = text(now, path)
            check = (applied or {}).get(path)
            ok = check(got) if check else same_value(got, value)
            if not ok:
                fail("%s: %s was set to %s and reads %s" % (what, path, value, got))
        # Back to the initial settings, and each changed one read back so.
        cam.set_settings(source, cam.request(self.initial, self.options))
        now = cam.settings(source)
        for path in values:
            if not same_value(text(now, path), text(self.initial, path)):
                fail("%s: %s reads %s after the initial settings were set again (was %s)"
                     % (what, path, text(now, path), text(self.initial, path)))
        self.tried.append(what)
        print("  %s: applied and restored" % what)

    def mode(self, what, option, setting, prefer=None, extra=None):
        """A mode other than the current one, when two or more are offered."""
        modes = texts(self.options, option)
        if len(modes) < 2:
            return
        current = text(self.initial, setting)
        others = [m for m in modes if m != current]
        if prefer in others:
            others = [prefer]
        values = dict(extra or {})
        values[setting] = others[0]
        self.apply(what, values)

    def number(self, what, option, setting, extra=None):
        """A value other than the current one, when the option's Max > Min."""
        bounds = span(self.options, option)
        if bounds is None or not bounds[1] > bounds[0]:
            return
        values = dict(extra or {})
        values[setting] = format_number(other_number(bounds[0], bounds[1],
                                                     number(self.initial, setting)))
        self.apply(what, values, {setting: near(values[setting], bounds)})


def near(value, bounds):
    """A setting of a range counts as applied when it reads back within 1%
    of the range's width of the value set: the resolution granted to a
    camera that keeps its own steps (integer levels on 0 to 100, say)."""
    def check(got):
        return got is not None and abs(float(got) - float(value)) <= \
            (bounds[1] - bounds[0]) * 0.01 + same_tolerance(float(value))
    return check


def adjustment_text(items):
    return "; ".join(",".join("%s=%s" % (c.tag[len(TT):], (c.text or "").strip())
                              for c in item if isinstance(c.tag, str)) for item in items)


def same_value(a, b):
    if a is None or b is None:
        return a == b
    try:
        return same_number(float(a), float(b))
    except ValueError:
        return a == b


def set_imaging_settings(cam):
    for source in cam.video_sources():
        options = cam.options(source)
        initial = cam.settings(source)
        ch = Changes(cam, source, options, initial)
        o = options
        if find(o, "BacklightCompensation") is not None:
            if {"ON", "OFF"} <= set(texts(o, "BacklightCompensation/Mode")):
                ch.mode("BacklightCompensation.Mode", "BacklightCompensation/Mode",
                        "BacklightCompensation/Mode")
            if "ON" in texts(o, "BacklightCompensation/Mode"):
                ch.number("BacklightCompensation.Level", "BacklightCompensation/Level",
                          "BacklightCompensation/Level", {"BacklightCompensation/Mode": "ON"})
        for name in ("Brightness", "ColorSaturation", "Contrast", "Sharpness"):
            ch.number(name, name, name)
        if find(o, "Exposure") is not None:
            modes = texts(o, "Exposure/Mode")
            if {"AUTO", "MANUAL"} <= set(modes):
                ch.mode("Exposure.Mode", "Exposure/Mode", "Exposure/Mode")
            if "AUTO" in modes:
                auto = {"Exposure/Mode": "AUTO"}
                ch.mode("Exposure.Priority", "Exposure/Priority", "Exposure/Priority", extra=auto)
                for name in ("MinExposureTime", "MaxExposureTime", "MinGain", "MaxGain",
                             "MinIris", "MaxIris"):
                    ch.number("Exposure." + name, "Exposure/" + name, "Exposure/" + name, auto)
            if "MANUAL" in modes:
                manual = {"Exposure/Mode": "MANUAL"}
                for name in ("ExposureTime", "Gain", "Iris"):
                    ch.number("Exposure." + name, "Exposure/" + name, "Exposure/" + name,
                              manual)
        if find(o, "Focus") is not None:
            modes = texts(o, "Focus/AutoFocusModes")
            ch.mode("Focus.AutoFocusMode", "Focus/AutoFocusModes", "Focus/AutoFocusMode")
            if "AUTO" in modes:
                for name in ("NearLimit", "FarLimit"):
                    ch.number("Focus." + name, "Focus/" + name, "Focus/" + name,
                              {"Focus/AutoFocusMode": "AUTO"})
            if "MANUAL" in modes:
                ch.number("Focus.DefaultSpeed", "Focus/DefaultSpeed", "Focus/DefaultSpeed",
                          {"Focus/AutoFocusMode": "MANUAL"})
        # OFF when the camera offers it and it is not the current mode.
        ch.mode("IrCutFilter", "IrCutFilterModes", "IrCutFilter", prefer="OFF")
        if find(o, "WhiteBalance") is not None:
            modes = texts(o, "WhiteBalance/Mode")
            ch.mode("WhiteBalance.Mode", "WhiteBalance/Mode", "WhiteBalance/Mode")
            if "MANUAL" in modes:
                manual = {"WhiteBalance/Mode": "MANUAL"}
                ch.number("WhiteBalance.CrGain", "WhiteBalance/YrGain", "WhiteBalance/CrGain",
                          manual)
                ch.number("WhiteBalance.CbGain", "WhiteBalance/YbGain", "WhiteBalance/CbGain",
                          manual)
        if find(o, "WideDynamicRange") is not None:
            modes = texts(o, "WideDynamicRange/Mode")
            if {"ON", "OFF"} <= set(modes):
                ch.mode("WideDynamicRange.Mode", "WideDynamicRange/Mode",
                        "WideDynamicRange/Mode")
            if "ON" in modes:
                ch.number("WideDynamicRange.Level", "WideDynamicRange/Level",
                          "WideDynamicRange/Level", {"WideDynamicRange/Mode": "ON"})
        stab = "Extension/ImageStabilization"
        if find(o, stab) is not None:
            ch.mode("Extension.ImageStabilization.Mode", stab + "/Mode", stab + "/Mode")
            if "ON" in texts(o, stab + "/Mode"):
                ch.number("Extension.ImageStabilization.Level", stab + "/Level",
                          stab + "/Level", {stab + "/Mode": "ON"})
        ch.finish("settings")


def set_imaging_settings_additional(cam):
    ir = "Extension/Extension/IrCutFilterAutoAdjustment"
    ext3 = "Extension/Extension/Extension"
    for source in cam.video_sources():
        options = cam.options(source)
        initial = cam.settings(source)
        ch = Changes(cam, source, options, initial)
        types = texts(options, ir + "/BoundaryType")
        offset_ok = text(options, ir + "/BoundaryOffset") in ("true", "1")
        response = find(options, ir + "/ResponseTimeRange")
        current = find_all(initial, ir)
        current_type = text(current[0], "BoundaryType") if current else None
        current_offset = number(current[0], "BoundaryOffset") if current else None
        current_response = text(current[0], "ResponseTime") if current else None

        def adjustment(values, applied, what):
            ch.step(what, lambda: change_adjustment(values, applied, what))

        def change_adjustment(values, applied, what):
            """The first IrCutFilterAutoAdjustment of the request changed, the
            other items left out."""
            request = cam.request(initial, options)
            items = find_all(request, ir)
            for extra in items[1:]:
                extra.getparent().remove(extra)
            item = items[0] if items else ensure(request, ir)
            for name in ("BoundaryType", "BoundaryOffset", "ResponseTime"):
                if name in values:
                    ensure(item, name).text = values[name]
            cam.set_settings(source, request)
            now = cam.settings(source)
            read = find_all(now, ir)
            match = [r for r in read if text(r, "BoundaryType") == values["BoundaryType"]]
            if not match:
                fail("%s: set %s, read %s" % (what, adjustment_text([item]),
                                              adjustment_text(read)))
            for name in applied:
                got = text(match[0], name)
                if name == "ResponseTime":
                    low = duration_seconds(text(response, "Min"))
                    high = duration_seconds(text(response, "Max"))
                    ok = got is not None and near(duration_seconds(values[name]), (low, high))(
                        duration_seconds(got))
                elif name == "BoundaryOffset":
                    ok = near(values[name], (-1.0, 1.0))(got)
                else:
                    ok = got == values[name]
                if not ok:
                    fail("%s: %s was set to %s and reads %s" % (what, name, values[name], got))
            cam.set_settings(source, cam.request(initial, options))
            print("  %s: applied and restored" % what)
            ch.tried.append(what)

        def response_time():
            if response is None:
                return None
            low = duration_seconds(text(response, "Min"))
            high = duration_seconds(text(response, "Max"))
            now = duration_seconds(current_response) if current_response else None
            return "PT%dS" % other_number(low, high, now) if high - low >= 4 else \
                "PT%sS" % format_number(other_number(low, high, now))

        if len(types) >= 2:
            present = {text(c, "BoundaryType") for c in current}
            fresh = [t for t in types if t not in present] if not set(types) <= present else \
                [t for t in types if t != current_type]
            values = {"BoundaryType": fresh[0]}
            if offset_ok:
                values["BoundaryOffset"] = format_number(other_number(-1.0, 1.0, current_offset))
            if response is not None:
                values["ResponseTime"] = response_time()
            adjustment(values, ["BoundaryType"], "IrCutFilterAutoAdjustment.BoundaryType")
        if offset_ok and types:
            values = {"BoundaryType": current_type or types[0],
                      "BoundaryOffset": format_number(other_number(-1.0, 1.0, current_offset))}
            adjustment(values, ["BoundaryOffset"], "IrCutFilterAutoAdjustment.BoundaryOffset")
        if response is not None and types and duration_seconds(text(response, "Max")) > \
                duration_seconds(text(response, "Min")):
            values = {"BoundaryType": current_type or types[0], "ResponseTime": response_time()}
            adjustment(values, ["ResponseTime"], "IrCutFilterAutoAdjustment.ResponseTime")
        for name in ("ToneCompensation", "Defogging"):
            opts = ext3 + "/" + name + "Options"
            setting = ext3 + "/" + name
            ch.mode(name + ".Mode", opts + "/Mode", setting + "/Mode")
            if text(options, opts + "/Level") in ("true", "1"):
                on = [m for m in texts(options, opts + "/Mode") if m.upper() == "ON"]
                level = other_number(0.0, 1.0, number(initial, setting + "/Level"))
                ch.apply(name + ".Level", {setting + "/Mode": on[0] if on else "ON",
                                           setting + "/Level": format_number(level)},
                         {setting + "/Level": near(level, (0.0, 1.0))})
        if text(options, ext3 + "/NoiseReductionOptions/Level") in ("true", "1"):
            level = other_number(0.0, 1.0, number(initial, ext3 + "/NoiseReduction/Level"))
            ch.apply("NoiseReduction.Level", {ext3 + "/NoiseReduction/Level":
                                              format_number(level)},
                     {ext3 + "/NoiseReduction/Level": near(level, (0.0, 1.0))})
        af_modes = find(options, "Focus/Extension/AFModes")
        if af_modes is not None and (af_modes.text or "").split():
            wanted = af_modes.text.split()[0]
            request = cam.request(initial, options)
            ensure(request, "Focus/AutoFocusMode").text = "AUTO"
            find(request, "Focus").set("AFMode", wanted)
            cam.set_settings(source, request)
            now = cam.settings(source)
            if text(now, "Focus/AutoFocusMode") != "AUTO":
                fail("Focus.AutoFocusMode reads %s after AUTO was set"
                     % text(now, "Focus/AutoFocusMode"))
            if (find(now, "Focus").get("AFMode") or "").split() != [wanted]:
                fail("Focus.AFMode reads %s after %s was set"
                     % (find(now, "Focus").get("AFMode"), wanted))
            cam.set_settings(source, cam.request(initial, options))
            ch.tried.append("Focus.AFMode")
        ch.finish("additional settings")


def settings_options_consistency(cam):
    for source in cam.video_sources():
        configuration = cam.settings(source)
        opts = cam.options(source)

        def one_of(setting, option):
            value = text(configuration, setting)
            if value is not None and value not in texts(opts, option):
                fail("%s is %s, not one of %s" % (setting, value, texts(opts, option)))

        def within(setting, option):
            value = number(configuration, setting)
            if value is None:
                return
            bounds = span(opts, option)
            if bounds is None:
                # The case compares with the option's bounds only.
                cam.warn("%s is set but GetOptions offers no %s" % (setting, option))
                return
            if value < bounds[0] or value > bounds[1]:
                fail("%s is %s, outside [%s, %s]" % ((setting, value) + bounds))

        if find(configuration, "BacklightCompensation") is not None:
            one_of("BacklightCompensation/Mode", "BacklightCompensation/Mode")
        if find(configuration, "Exposure") is not None:
            one_of("Exposure/Mode", "Exposure/Mode")
            one_of("Exposure/Priority", "Exposure/Priority")
        if find(configuration, "Focus") is not None:
            one_of("Focus/AutoFocusMode", "Focus/AutoFocusModes")
            if find(configuration, "Focus").get("AFMode") is not None and \
                    find(opts, "Focus/Extension/AFModes") is None:
                fail("Focus has an AFMode but GetOptions offers no Focus.Extension.AFModes")
        one_of("IrCutFilter", "IrCutFilterModes")
        if find(configuration, "WideDynamicRange") is not None:
            one_of("WideDynamicRange/Mode", "WideDynamicRange/Mode")
        if find(configuration, "WhiteBalance") is not None:
            one_of("WhiteBalance/Mode", "WhiteBalance/Mode")
        if find(configuration, "Extension/ImageStabilization") is not None:
            one_of("Extension/ImageStabilization/Mode", "Extension/ImageStabilization/Mode")
        for setting, option in SETTING_RANGES:
            within(setting, option)
        ir = "Extension/Extension/IrCutFilterAutoAdjustment"
        for item in find_all(configuration, ir):
            if text(item, "BoundaryType") not in texts(opts, ir + "/BoundaryType"):
                fail("IrCutFilterAutoAdjustment.BoundaryType %s is not one of %s"
                     % (text(item, "BoundaryType"), texts(opts, ir + "/BoundaryType")))
            if find(item, "BoundaryOffset") is not None and \
                    text(opts, ir + "/BoundaryOffset") not in ("true", "1"):
                fail("IrCutFilterAutoAdjustment.BoundaryOffset is set but not offered")
            if find(item, "ResponseTime") is not None:
                seconds = duration_seconds(text(item, "ResponseTime"))
                low = text(opts, ir + "/ResponseTimeRange/Min")
                high = text(opts, ir + "/ResponseTimeRange/Max")
                if low is None or high is None:
                    fail("IrCutFilterAutoAdjustment.ResponseTime without a ResponseTimeRange")
                if seconds < duration_seconds(low) or seconds > duration_seconds(high):
                    fail("IrCutFilterAutoAdjustment.ResponseTime %s outside [%s, %s]"
                         % (text(item, "ResponseTime"), low, high))
        ext3 = "Extension/Extension/Extension"
        for name in ("ToneCompensation", "Defogging"):
            if find(configuration, ext3 + "/" + name) is not None:
                one_of(ext3 + "/" + name + "/Mode", ext3 + "/" + name + "Options/Mode")
                if find(configuration, ext3 + "/" + name + "/Level") is not None and \
                        text(opts, ext3 + "/" + name + "Options/Level") not in ("true", "1"):
                    fail("%s.Level is set but not offered" % name)
        if find(configuration, ext3 + "/NoiseReduction") is not None and \
                text(opts, ext3 + "/NoiseReductionOptions/Level") not in ("true", "1"):
            fail("NoiseReduction is set but its Level is not offered")


MOVE_RANGES = ["Absolute/Position", "Absolute/Speed", "Relative/Distance", "Relative/Speed",
               "Continuous/Speed"]


def move_options(cam, source):
    answer = cam.call(cam.img, "GetMoveOptions", VideoSourceToken=source)[1]
    return answer.find("{%s}MoveOptions" % NS["timg"])


def get_move_options(cam):
    for source in cam.video_sources():
        moves = move_options(cam, source)
        for path in MOVE_RANGES:
            bounds = span(moves, path)
            if bounds and bounds[0] > bounds[1]:
                fail("GetMoveOptions: %s has Min %s above Max %s" % ((path,) + bounds))


def inside(bounds, share):
    return bounds[0] + (bounds[1] - bounds[0]) * share


def beyond(bounds):
    return bounds[1] + (bounds[1] - bounds[0]) + 1


def absolute_move(cam):
    for source in cam.video_sources():
        moves = move_options(cam, source)
        position = span(moves, "Absolute/Position")
        if position is None:
            print("  no absolute move")
            continue
        cam.call(cam.img, "Move", VideoSourceToken=source,
                 Focus={"Absolute": {"Position": inside(position, 0.25)}})
        speed = span(moves, "Absolute/Speed")
        if speed is not None:
            cam.call(cam.img, "Move", VideoSourceToken=source,
                     Focus={"Absolute": {"Position": inside(position, 0.75),
                                         "Speed": inside(speed, 0.5)}})


def absolute_move_invalid(cam):
    for source in cam.video_sources():
        moves = move_options(cam, source)
        position = span(moves, "Absolute/Position")
        if position is None:
            print("  no absolute move")
            continue
        cam.fault(cam.img, "Move", None,
                  VideoSourceToken=source, Focus={"Absolute": {"Position": beyond(position)}})
        speed = span(moves, "Absolute/Speed")
        if speed is not None:
            cam.fault(cam.img, "Move", None,
                      VideoSourceToken=source,
                      Focus={"Absolute": {"Position": inside(position, 0.25),
                                          "Speed": beyond(speed)}})


def relative_move(cam):
    for source in cam.video_sources():
        moves = move_options(cam, source)
        distance = span(moves, "Relative/Distance")
        if distance is None:
            print("  no relative move")
            continue
        cam.call(cam.img, "Move", VideoSourceToken=source,
                 Focus={"Relative": {"Distance": inside(distance, 0.6)}})
        speed = span(moves, "Relative/Speed")
        if speed is not None:
            cam.call(cam.img, "Move", VideoSourceToken=source,
                     Focus={"Relative": {"Distance": inside(distance, 0.4),
                                         "Speed": inside(speed, 0.5)}})


def relative_move_invalid(cam):
    for source in cam.video_sources():
        moves = move_options(cam, source)
        distance = span(moves, "Relative/Distance")
        if distance is None:
            print("  no relative move")
            continue
        cam.fault(cam.img, "Move", None,
                  VideoSourceToken=source, Focus={"Relative": {"Distance": beyond(distance)}})
        speed = span(moves, "Relative/Speed")
        if speed is not None:
            cam.fault(cam.img, "Move", None,
                      VideoSourceToken=source,
                      Focus={"Relative": {"Distance": inside(distance, 0.6),
                                          "Speed": beyond(speed)}})


def continuous_move(cam):
    for source in cam.video_sources():
        moves = move_options(cam, source)
        speed = span(moves, "Continuous/Speed")
        if speed is None:
            print("  no continuous move")
            continue
        cam.call(cam.img, "Move", VideoSourceToken=source,
                 Focus={"Continuous": {"Speed": inside(speed, 0.75)}})
        cam.call(cam.img, "Stop", VideoSourceToken=source)


def continuous_move_invalid(cam):
    for source in cam.video_sources():
        moves = move_options(cam, source)
        speed = span(moves, "Continuous/Speed")
        if speed is None:
            print("  no continuous move")
            continue
        cam.fault(cam.img, "Move", None,
                  VideoSourceToken=source, Focus={"Continuous": {"Speed": beyond(speed)}})


def unsupported_move(cam):
    for source in cam.video_sources():
        moves = move_options(cam, source)
        # "any value": the camera offers no such move, so none is valid.
        tried = 0
        for kind, focus in (("Absolute", {"Absolute": {"Position": 1.0, "Speed": 1.0}}),
                            ("Relative", {"Relative": {"Distance": 1.0, "Speed": 1.0}}),
                            ("Continuous", {"Continuous": {"Speed": 0.5}})):
            if find(moves, kind) is not None:
                continue
            cam.fault(cam.img, "Move", None, VideoSourceToken=source, Focus=focus)
            tried += 1
        print("  %d unsupported kinds of move refused" % tried)


def get_status(cam):
    for source in cam.video_sources():
        try:
            cam.img.GetStatus(VideoSourceToken=source)
        except zeep.exceptions.Fault:
            body = cam.c.validate_last("GetStatus (fault)", "env:Fault")
            chain = fault_chain(body)
            if chain not in ("env:Receiver/ter:ActionNotSupported/ter:NoImagingForSource",
                             "env:Receiver/ter:ActionNotSupported"):
                fail("GetStatus: the fault %s is neither of the two the case names" % chain)
            print("  GetStatus refused: %s" % chain)
            continue
        cam.c.validate_last("GetStatus", "timg:GetStatusResponse")


def stop(cam):
    for source in cam.video_sources():
        try:
            cam.img.Stop(VideoSourceToken=source)
        except zeep.exceptions.Fault:
            body = cam.c.validate_last("Stop (fault)", "env:Fault")
            chain = fault_chain(body)
            if chain not in ("env:Receiver/ter:ActionNotSupported/ter:NoImagingForSource",
                             "env:Receiver/ter:ActionNotSupported"):
                fail("Stop: the fault %s is neither of the two the case names" % chain)
            print("  Stop refused: %s" % chain)
            continue
        cam.c.validate_last("Stop", "timg:StopResponse")


def service_capabilities(cam):
    cam.call(cam.img, "GetServiceCapabilities")


def capabilities_consistency(cam):
    _, services = cam.call(cam.dev, "GetServices", IncludeCapability=True)
    imaging = [s for s in services.findall("{%s}Service" % NS["tds"])
               if text_ns(s, "tds", "Namespace") == NS["timg"]]
    if len(imaging) != 1:
        fail("GetServices names %d imaging services" % len(imaging))
    holder = imaging[0].find("{%s}Capabilities" % NS["tds"])
    listed = holder.find("{%s}Capabilities" % NS["timg"]) if holder is not None else None
    if listed is None:
        fail("GetServices with IncludeCapability holds no timg:Capabilities for imaging")
    _, answer = cam.call(cam.img, "GetServiceCapabilities")
    asked = answer.find("{%s}Capabilities" % NS["timg"])
    if capability_values(listed) != capability_values(asked):
        fail("GetServices lists the imaging capabilities %s, GetServiceCapabilities %s"
             % (capability_values(listed), capability_values(asked)))


def text_ns(el, prefix, name):
    found = el.find("{%s}%s" % (NS[prefix], name))
    return None if found is None else (found.text or "").strip()


def capability_values(el):
    """The capabilities' attributes as booleans (xs:boolean's true and 1 are
    the same), and their elements as text."""
    values = {}
    for name, value in el.attrib.items():
        values[name] = {"1": "true", "0": "false"}.get(value.strip(), value.strip())
    for child in el:
        if isinstance(child.tag, str):
            values[child.tag] = etree.tostring(child, method="c14n")
    return values


CASES = [
    ("IMAGING COMMAND GETIMAGINGSETTINGS", "IMAGING-1-1-1", get_imaging_settings),
    ("IMAGING COMMAND GETOPTIONS", "IMAGING-1-1-3", get_options),
    ("IMAGING COMMAND SETIMAGINGSETTINGS – INVALID SETTINGS", "IMAGING-1-1-8",
     set_invalid_settings),
    ("IMAGING COMMAND GETIMAGINGSETTINGS – INVALID VIDEOSOURCETOKEN", "IMAGING-1-1-10",
     invalid_token("GetImagingSettings")),
    ("IMAGING COMMAND GETOPTIONS – INVALID VIDEOSOURCETOKEN", "IMAGING-1-1-11",
     invalid_token("GetOptions")),
    ("IMAGING COMMAND SETIMAGINGSETTINGS – INVALID VIDEOSOURCETOKEN", "IMAGING-1-1-12",
     set_invalid_settings_token),
    ("IMAGING COMMAND SETIMAGINGSETTINGS", "IMAGING-1-1-14", set_imaging_settings),
    ("IMAGING COMMAND SETIMAGINGSETTINGS ADDITIONAL FEATURES", "IMAGING-1-1-15",
     set_imaging_settings_additional),
    ("GET IMAGING SETTINGS AND GET OPTIONS CONSISTENCY", "IMAGING-1-1-16",
     settings_options_consistency),
    ("IMAGING COMMAND GETMOVEOPTIONS", "IMAGING-2-1-1", get_move_options),
    ("IMAGING COMMAND ABSOLUTE MOVE", "IMAGING-2-1-3", absolute_move),
    ("IMAGING COMMAND ABSOLUTE MOVE – INVALID SETTINGS", "IMAGING-2-1-4", absolute_move_invalid),
    ("IMAGING COMMAND RELATIVE MOVE", "IMAGING-2-1-5", relative_move),
    ("IMAGING COMMAND RELATIVE MOVE – INVALID SETTINGS", "IMAGING-2-1-6", relative_move_invalid),
    ("IMAGING COMMAND CONTINUOUS MOVE", "IMAGING-2-1-7", continuous_move),
    ("IMAGING COMMAND CONTINUOUS MOVE – INVALID SETTINGS", "IMAGING-2-1-8",
     continuous_move_invalid),
    ("IMAGING COMMAND MOVE – UNSUPPORTED MOVE", "IMAGING-2-1-10", unsupported_move),
    ("IMAGING COMMAND GETSTATUS", "IMAGING-2-1-11", get_status),
    ("IMAGING COMMAND STOP", "IMAGING-2-1-13", stop),
    ("IMAGING COMMAND GETMOVEOPTIONS – INVALID VIDEOSOURCETOKEN", "IMAGING-2-1-15",
     invalid_token("GetMoveOptions")),
    ("IMAGING COMMAND MOVE – INVALID VIDEOSOURCETOKEN", "IMAGING-2-1-16",
     invalid_token("Move", Focus={"Continuous": {"Speed": 0.0}})),
    ("IMAGING COMMAND GETSTATUS – INVALID VIDEOSOURCETOKEN", "IMAGING-2-1-17",
     invalid_token_or_unsupported("GetStatus")),
    ("IMAGING COMMAND STOP – INVALID VIDEOSOURCETOKEN", "IMAGING-2-1-18",
     invalid_token_or_unsupported("Stop")),
    ("IMAGING SERVICE CAPABILITIES", "IMAGING-3-1-1", service_capabilities),
    ("GET SERVICES AND GET IMAGING SERVICE CAPABILITIES CONSISTANCY", "IMAGING-3-1-2",
     capabilities_consistency),
]


# With --sensorctl these cases run on a camera with a fixed lens too, where
# the focus moves, status and stop meet a source without a focus motor.
FIXED_LENS = "(sensor=IMX327)(lens=fixed)(max_scheme=4)(isInfrared=1)"
ALSO_FIXED_LENS = {"IMAGING-2-1-1", "IMAGING-2-1-10", "IMAGING-2-1-11", "IMAGING-2-1-13"}


def ctest_name(title):
    """The title in capitals and underscores: "IMAGING COMMAND STOP – INVALID
    VIDEOSOURCETOKEN" becomes IMAGING_COMMAND_STOP_INVALID_VIDEOSOURCETOKEN."""
    return "_".join(re.findall(r"[A-Z0-9]+", title.upper()))


def lookup(name):
    for case in CASES:
        if name in (case[0], case[1], ctest_name(case[0])):
            return case
    raise SystemExit("imaging_cases: no case %r (see --list)" % name)


def run_case(case, reference, url, user, password, camera=""):
    title, ident, body = case
    print("%s (%s)%s" % (title, ident, camera))
    checker = oz.Checker(reference, url, user, password)
    try:
        cam = Camera(checker)
        body(cam)
    except CaseFailed as e:
        print("  FAILED: %s" % e, file=sys.stderr)
        return False
    except SystemExit:
        print("  FAILED (see the message above)", file=sys.stderr)
        return False
    print("  passed (%d answers, %d faults, %d warnings)" % (checker.answers, checker.faults,
                                                          len(cam.warnings)))
    for what, faults in (("faults other than the preferred", cam.other_faults),
                         ("faults where any fault passes", cam.any_faults)):
        if faults:
            print("  %s: %s" % (what, "; ".join(faults)))
    return True


def stop_serve(proc, log):
    proc.terminate()
    try:
        status = proc.wait(timeout=10)
    except subprocess.TimeoutExpired:
        proc.kill()
        status = proc.wait()
    if status != 0:
        log.seek(0)
        print("sensorctl serve ended with %s:\n%s" % (status, log.read()[-4000:]),
              file=sys.stderr)
        return False
    return True


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--sensorctl", help="start this sensorctl's serve for each case")
    parser.add_argument("--url", help="a running serve, http://127.0.0.1:PORT")
    parser.add_argument("--user", default="admin")
    parser.add_argument("--password")
    parser.add_argument("--case", action="append", default=[],
                        help="a case's title, ID or ctest name (repeatable)")
    parser.add_argument("--except", dest="leave_out", action="append", default=[],
                        help="leave this case out (repeatable)")
    parser.add_argument("--list", action="store_true", help="list the cases and stop")
    args = parser.parse_args()
    if args.list:
        for title, ident, _ in CASES:
            print("%s\t%s\t%s" % (ident, ctest_name(title), title))
        return 0
    if bool(args.sensorctl) == bool(args.url):
        parser.error("give either --sensorctl or --url")
    if args.url and not args.password:
        parser.error("--url needs --password")
    cases = [lookup(name) for name in args.case] or CASES
    left_out = [lookup(name) for name in args.leave_out]
    cases = [case for case in cases if case not in left_out]
    reference = oz.reference_dir()
    failed = []
    for case in cases:
        if args.sensorctl:
            ok = True
            cameras = [(oz.MOTOR_LENS, "")]
            if case[1] in ALSO_FIXED_LENS:
                cameras.append((FIXED_LENS, " on a camera with a fixed lens"))
            for detail, camera in cameras:
                password = "cases-" + secrets.token_hex(9)
                proc, url, log = oz.start_serve(args.sensorctl, args.user, password, detail)
                passed = False
                try:
                    passed = run_case(case, reference, url, args.user, password, camera)
                finally:
                    ok = stop_serve(proc, log) and passed and ok
        else:
            ok = run_case(case, reference, args.url, args.user, args.password)
        if not ok:
            failed.append(case[0])
    print("imaging_cases: %d of %d cases passed" % (len(cases) - len(failed), len(cases)))
    for title in failed:
        print("  failed: " + title, file=sys.stderr)
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
