#!/usr/bin/python3
"""ONVIF's published Base device conformance cases (discovery and
security) run against `sensorctl serve`, each named by its title:

  SEARCH BASED ON DEVICE SCOPE TYPES          (DISCOVERY-1-1-3)
  SEARCH WITH OMITTED DEVICE AND SCOPE TYPES  (DISCOVERY-1-1-4)
  RESPONSE TO INVALID SEARCH REQUEST          (DISCOVERY-1-1-5)
  SEARCH USING UNICAST PROBE MESSAGE          (DISCOVERY-1-1-6)
  USER TOKEN PROFILE                          (SECURITY-1-1-1)
  DIGEST AUTHENTICATION                       (SECURITY-1-1-2)

ONVIF's cases send their Probes to the multicast group; tests here send
only to 127.0.0.1, so every Probe is the unicast one of DISCOVERY-1-1-6
(which repeats 1-1-3 to 1-1-5 by unicast). The SOAP side goes through
python3-zeep built from the official WSDLs (onvif_zeep.py's Checker, which
validates every answer with python3-lxml); HTTP digest through
python3-requests' own digest; the Probe matches are read with lxml.

  discovery_security_cases.py --sensorctl PATH --case "TITLE"   one case, its own serve
  discovery_security_cases.py --sensorctl PATH                  every case

Exit status 0: passed; 1: failed; 77: zeep, lxml or requests missing.
"""
import argparse
import base64
import datetime
import hashlib
import os
import re
import secrets
import socket
import sys
import time
import uuid

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import onvif_zeep  # noqa: E402  (exits 77 without zeep or lxml)
from onvif_zeep import NS, Checker, OffsetUsernameToken, fail, reference_dir, start_serve  # noqa

try:
    import requests
    from requests.auth import HTTPDigestAuth
    from lxml import etree
except ImportError as missing:
    print("discovery_security_cases: skipped, %s" % missing)
    sys.exit(77)

WSA = "http://schemas.xmlsoap.org/ws/2004/08/addressing"
WSD = "http://schemas.xmlsoap.org/ws/2005/04/discovery"
DN = "http://www.onvif.org/ver10/network/wsdl"
# The scope types every ONVIF device must have (Annex A.1 of the
# cases): type, location, hardware and name.
MANDATORY_SCOPES = ("onvif://www.onvif.org/type/", "onvif://www.onvif.org/location/",
                    "onvif://www.onvif.org/hardware/", "onvif://www.onvif.org/name/")
DISCOVERY_TIMEOUT = 5.0  # seconds (Annex A.7)


def probe_message(message_id, types=None, scopes=None):
    """A WS-Discovery Probe as a client writes it (SOAP 1.2, WS-Addressing
    2004/08)."""
    body = ""
    if types is not None:
        body += '<d:Types xmlns:dn="%s">%s</d:Types>' % (DN, types)
    if scopes is not None:
        body += "<d:Scopes>%s</d:Scopes>" % scopes
    return ('<?xml version="1.0" encoding="UTF-8"?>'
            '<s:Envelope xmlns:s="%s" xmlns:a="%s" xmlns:d="%s"><s:Header>'
            "<a:Action>http://schemas.xmlsoap.org/ws/2005/04/discovery/Probe</a:Action>"
            "<a:MessageID>%s</a:MessageID>"
            "<a:To>urn:schemas-xmlsoap-org:ws:2005:04:discovery</a:To>"
            "</s:Header><s:Body><d:Probe>%s</d:Probe></s:Body></s:Envelope>"
            % (NS["env"], WSA, WSD, message_id, body)).encode("utf-8")


def send_probe(port, message, wait=DISCOVERY_TIMEOUT, grace=0.5):
    """The Probe by unicast to 127.0.0.1:port; the answers that come within
    wait seconds, ending grace seconds after the first (to see a second)."""
    sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    try:
        sock.bind(("127.0.0.1", 0))
        sock.sendto(message, ("127.0.0.1", port))
        answers = []
        deadline = time.monotonic() + wait
        while time.monotonic() < deadline:
            sock.settimeout(max(0.01, deadline - time.monotonic()))
            try:
                data, _ = sock.recvfrom(65536)
            except socket.timeout:
                break
            answers.append(etree.fromstring(data))
            deadline = min(deadline, time.monotonic() + grace)
        return answers
    finally:
        sock.close()


class Case:
    """One serve, its discovery port and the clients of the cases."""

    def __init__(self, sensorctl):
        self.user = "admin"
        self.password = "base-" + secrets.token_hex(9)
        self.proc, self.url, self.log = start_serve(sensorctl, self.user, self.password)
        self.discovery_port = self.wait_for(r"WS-Discovery on UDP port (\d+)")
        self.checker = Checker(reference_dir(), self.url, self.user, self.password)
        self.device_url = self.url + "/onvif/device_service"

    def wait_for(self, pattern):
        deadline = time.monotonic() + 10
        while time.monotonic() < deadline:
            self.log.seek(0)
            found = re.search(pattern, self.log.read())
            if found:
                return int(found.group(1))
            time.sleep(0.05)
        self.log.seek(0)
        fail("serve did not say %s:\n%s" % (pattern, self.log.read()))

    def close(self):
        self.proc.terminate()
        try:
            self.proc.wait(timeout=10)
        except Exception:
            self.proc.kill()

    def device(self, wsse=None):
        return self.checker.client("ver10/device/wsdl/devicemgmt.wsdl", wsse).create_service(
            "{%s}DeviceBinding" % NS["tds"], self.device_url)

    def token(self):
        """A correct UsernameToken, dated by the device's clock."""
        utc = self.checker.call(self.device(), "GetSystemDateAndTime").UTCDateTime
        device_now = datetime.datetime(utc.Date.Year, utc.Date.Month, utc.Date.Day,
                                       utc.Time.Hour, utc.Time.Minute, utc.Time.Second)
        return OffsetUsernameToken(self.user, self.password,
                                   device_now - datetime.datetime.utcnow())

    # --- The ProbeMatch checks the three search cases share ---------------

    def check_probe_match(self, answers, message_id):
        c = self.checker
        c.check(len(answers) == 1, "%d answers to one Probe" % len(answers))
        envelope = answers[0]
        relates = envelope.find("{%s}Header/{%s}RelatesTo" % (NS["env"], WSA))
        c.check(relates is not None and relates.text == message_id,
                "RelatesTo is %s, not the Probe's MessageID %s"
                % (None if relates is None else relates.text, message_id))
        match = envelope.find("{%s}Body/{%s}ProbeMatches/{%s}ProbeMatch" % (NS["env"], WSD, WSD))
        c.check(match is not None, "no ProbeMatch in the answer")
        ref = match.find("{%s}EndpointReference/{%s}Address" % (WSA, WSA))
        c.check(ref is not None and ref.text, "the ProbeMatch has no endpoint reference")
        types = match.find("{%s}Types" % WSD)
        c.check(types is not None and types.text, "the ProbeMatch has no Types")
        # Each type a QName whose prefix is declared (the namespace of the
        # Types value), NetworkVideoTransmitter among them.
        names = []
        for qname in types.text.split():
            prefix, _, local = qname.rpartition(":")
            names.append((types.nsmap.get(prefix or None), local))
        c.check((DN, "NetworkVideoTransmitter") in names,
                "Types %s (namespaces %s) lack dn:NetworkVideoTransmitter" % (types.text, names))
        scopes = match.find("{%s}Scopes" % WSD)
        c.check(scopes is not None and scopes.text, "the ProbeMatch has no Scopes")
        for mandatory in MANDATORY_SCOPES:
            c.check(any(s.startswith(mandatory) for s in scopes.text.split()),
                    "the ProbeMatch's scopes lack %s" % mandatory)
        xaddrs = match.find("{%s}XAddrs" % WSD)
        c.check(xaddrs is not None and self.device_url in xaddrs.text.split(),
                "XAddrs %s do not hold %s" % (None if xaddrs is None else xaddrs.text,
                                              self.device_url))
        version = match.find("{%s}MetadataVersion" % WSD)
        c.check(version is not None and version.text.strip().isdigit(),
                "the ProbeMatch has no MetadataVersion")


def search_based_on_device_scope_types(case):
    """DISCOVERY-1-1-3, by unicast: GetScopes holds the mandatory scope
    types; a Probe for each of them is matched."""
    scopes = case.checker.call(case.device(case.token()), "GetScopes")
    items = [s.ScopeItem for s in scopes]
    for mandatory in MANDATORY_SCOPES:
        case.checker.check(any(i.startswith(mandatory) for i in items),
                           "GetScopes lacks a %s scope: %s" % (mandatory, items))
    for mandatory in MANDATORY_SCOPES:
        scope = next(i for i in items if i.startswith(mandatory))
        message_id = "urn:uuid:%s" % uuid.uuid4()
        answers = send_probe(case.discovery_port,
                             probe_message(message_id, "dn:NetworkVideoTransmitter", scope))
        case.check_probe_match(answers, message_id)


def search_with_omitted_device_and_scope_types(case):
    """DISCOVERY-1-1-4, by unicast: a Probe without Types and Scopes."""
    message_id = "urn:uuid:%s" % uuid.uuid4()
    case.check_probe_match(send_probe(case.discovery_port, probe_message(message_id)), message_id)


def response_to_invalid_search_request(case):
    """DISCOVERY-1-1-5, by unicast: a Probe for a device type and a scope the
    camera does not have is not answered."""
    message_id = "urn:uuid:%s" % uuid.uuid4()
    answers = send_probe(
        case.discovery_port,
        probe_message(message_id, "dn:NoSuchDeviceType", "onvif://www.onvif.org/invalid/scope"),
        wait=2.0)
    case.checker.check(answers == [], "the camera answered an invalid Probe: %s" % [
        etree.tostring(a).decode() for a in answers])


def search_using_unicast_probe_message(case):
    """DISCOVERY-1-1-6: 1-1-3, 1-1-4 and 1-1-5 by unicast Probe."""
    search_based_on_device_scope_types(case)
    search_with_omitted_device_and_scope_types(case)
    response_to_invalid_search_request(case)


def raw_soap(url, body_xml, security=""):
    """A device request with a hand-made WS-Security header (the wrong tokens
    the cases ask for cannot be made with zeep's)."""
    envelope = ('<?xml version="1.0" encoding="UTF-8"?><s:Envelope xmlns:s="%s"><s:Header>%s'
                "</s:Header><s:Body>%s</s:Body></s:Envelope>" % (NS["env"], security, body_xml))
    return requests.post(url, data=envelope.encode("utf-8"), timeout=30,
                         headers={"Content-Type": "application/soap+xml; charset=utf-8"})


def username_token(user, password, nonce=True, created=True, digest=True, offset=None):
    """A UsernameToken as WS-Security's UsernameToken profile writes it, with
    the parts the cases leave out one at a time."""
    raw_nonce = secrets.token_bytes(16)
    now = datetime.datetime.utcnow() + (offset or datetime.timedelta())
    stamp = now.strftime("%Y-%m-%dT%H:%M:%SZ")
    if digest:
        value = base64.b64encode(hashlib.sha1(
            raw_nonce + stamp.encode() + password.encode()).digest()).decode()
        ptype = ("http://docs.oasis-open.org/wss/2004/01/"
                 "oasis-200401-wss-username-token-profile-1.0#PasswordDigest")
    else:
        value = password
        ptype = ("http://docs.oasis-open.org/wss/2004/01/"
                 "oasis-200401-wss-username-token-profile-1.0#PasswordText")
    wsse = "http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-secext-1.0.xsd"
    wsu = "http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-utility-1.0.xsd"
    parts = '<wsse:Username>%s</wsse:Username><wsse:Password Type="%s">%s</wsse:Password>' % (
        user, ptype, value)
    if nonce:
        parts += ('<wsse:Nonce EncodingType="http://docs.oasis-open.org/wss/2004/01/'
                  'oasis-200401-wss-soap-message-security-1.0#Base64Binary">%s</wsse:Nonce>'
                  % base64.b64encode(raw_nonce).decode())
    if created:
        parts += "<wsu:Created>%s</wsu:Created>" % stamp
    return ('<wsse:Security xmlns:wsse="%s" xmlns:wsu="%s" s:mustUnderstand="1">'
            "<wsse:UsernameToken>%s</wsse:UsernameToken></wsse:Security>" % (wsse, wsu, parts))


GET_DEVICE_INFORMATION = '<GetDeviceInformation xmlns="%s"/>' % NS["tds"]


def device_offset(case):
    utc = case.checker.call(case.device(), "GetSystemDateAndTime").UTCDateTime
    device_now = datetime.datetime(utc.Date.Year, utc.Date.Month, utc.Date.Day,
                                   utc.Time.Hour, utc.Time.Minute, utc.Time.Second)
    return device_now - datetime.datetime.utcnow()


def user_token_profile(case):
    """SECURITY-1-1-1: a request that needs authentication (GetDeviceInformation)
    with a UsernameToken missing its nonce, missing its timestamp or with the
    wrong password type is refused; a correct one is accepted."""
    offset = device_offset(case)
    for what, token in (
            ("without a nonce", username_token(case.user, case.password, nonce=False,
                                               offset=offset)),
            ("without a timestamp", username_token(case.user, case.password, created=False,
                                                   offset=offset)),
            ("with the password as text", username_token(case.user, case.password, digest=False,
                                                         offset=offset))):
        answer = raw_soap(case.device_url, GET_DEVICE_INFORMATION, token)
        case.checker.check(answer.status_code in (400, 401) and b"Fault" in answer.content,
                           "a UsernameToken %s was accepted: HTTP %d %s"
                           % (what, answer.status_code, answer.content[:300]))
    answer = raw_soap(case.device_url, GET_DEVICE_INFORMATION,
                      username_token(case.user, case.password, offset=offset))
    case.checker.check(answer.status_code == 200 and b"GetDeviceInformationResponse" in
                       answer.content, "a correct UsernameToken was refused: HTTP %d %s"
                       % (answer.status_code, answer.content[:300]))
    # And through zeep's own token.
    case.checker.call(case.device(case.token()), "GetDeviceInformation")


def digest_authentication(case):
    """SECURITY-1-1-2: without authentication the request is refused with
    HTTP 401 and a WWW-Authenticate header that offers Digest with a realm
    and a nonce; with HTTP digest (requests' own) it is accepted."""
    answer = raw_soap(case.device_url, GET_DEVICE_INFORMATION)
    case.checker.check(answer.status_code == 401, "no credentials answered HTTP %d"
                       % answer.status_code)
    challenge = answer.headers.get("WWW-Authenticate", "")
    case.checker.check(re.search(r"\bDigest\b", challenge) and 'realm="' in challenge and
                       'nonce="' in challenge, "the challenge lacks Digest, realm or nonce: %s"
                       % challenge)
    envelope = ('<?xml version="1.0" encoding="UTF-8"?><s:Envelope xmlns:s="%s"><s:Body>%s'
                "</s:Body></s:Envelope>" % (NS["env"], GET_DEVICE_INFORMATION))
    answer = requests.post(case.device_url, data=envelope.encode("utf-8"), timeout=30,
                           auth=HTTPDigestAuth(case.user, case.password),
                           headers={"Content-Type": "application/soap+xml; charset=utf-8"})
    case.checker.check(answer.status_code == 200 and b"GetDeviceInformationResponse" in
                       answer.content, "a valid HTTP digest was refused: HTTP %d %s"
                       % (answer.status_code, answer.content[:300]))


CASES = {
    "SEARCH BASED ON DEVICE SCOPE TYPES": search_based_on_device_scope_types,
    "SEARCH WITH OMITTED DEVICE AND SCOPE TYPES": search_with_omitted_device_and_scope_types,
    "RESPONSE TO INVALID SEARCH REQUEST": response_to_invalid_search_request,
    "SEARCH USING UNICAST PROBE MESSAGE": search_using_unicast_probe_message,
    "USER TOKEN PROFILE": user_token_profile,
    "DIGEST AUTHENTICATION": digest_authentication,
}


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--sensorctl", required=True)
    parser.add_argument("--case", choices=sorted(CASES))
    args = parser.parse_args()
    for title in [args.case] if args.case else list(CASES):
        case = Case(args.sensorctl)
        try:
            CASES[title](case)
        finally:
            case.close()
        print("discovery_security_cases: %s passed (%d checks)" % (title, case.checker.checks))


if __name__ == "__main__":
    main()
