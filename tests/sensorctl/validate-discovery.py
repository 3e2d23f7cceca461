#!/usr/bin/env python3
"""Validates a WS-Discovery answer of the camera against the published schemas.

usage: validate-discovery.py REFERENCE_DIR MESSAGE_FILE

REFERENCE_DIR holds ext/soap12-envelope.xsd, ext/ws-discovery.xsd and
ext/addressing-2004-08.xsd (the ONVIF reference files). The whole envelope is
validated (its Header and Body take any element laxly, so every header block
and the body's message are checked against their own schema), then the
body's message alone, strictly. The validator is first shown to refuse the
message without its MetadataVersion (when it has one: Hello, ProbeMatches,
ResolveMatches), so a pass means something.
Exit 0: valid; 1: invalid (the reasons on standard error); 77: no lxml.
"""
import os
import sys

try:
    from lxml import etree
except ImportError:
    print("python3-lxml is not installed", file=sys.stderr)
    sys.exit(77)

SOAP = "http://www.w3.org/2003/05/soap-envelope"
DISCOVERY = "http://schemas.xmlsoap.org/ws/2005/04/discovery"
ADDRESSING = "http://schemas.xmlsoap.org/ws/2004/08/addressing"


class Offline(etree.Resolver):
    """The schemas import each other by URL: every URL maps to its file."""

    def __init__(self, ext):
        super().__init__()
        self.files = {
            "http://schemas.xmlsoap.org/ws/2004/08/addressing": "addressing-2004-08.xsd",
            "http://www.w3.org/2001/xml.xsd": "xml.xsd",
        }
        self.ext = ext

    def resolve(self, url, pubid, context):
        name = self.files.get(url)
        if name:
            return self.resolve_filename(os.path.join(self.ext, name), context)
        return None


def schema(ext):
    parser = etree.XMLParser()
    parser.resolvers.add(Offline(ext))
    wrapper = (
        '<xs:schema xmlns:xs="http://www.w3.org/2001/XMLSchema" targetNamespace="urn:wrapper">'
        f'<xs:import namespace="{SOAP}" schemaLocation="file://{ext}/soap12-envelope.xsd"/>'
        f'<xs:import namespace="{ADDRESSING}" schemaLocation="file://{ext}/addressing-2004-08.xsd"/>'
        f'<xs:import namespace="{DISCOVERY}" schemaLocation="file://{ext}/ws-discovery.xsd"/>'
        "</xs:schema>"
    )
    return etree.XMLSchema(etree.fromstring(wrapper.encode(), parser, base_url=ext + "/"))


def main():
    ext = os.path.join(os.path.abspath(sys.argv[1]), "ext")
    xsd = schema(ext)
    doc = etree.parse(sys.argv[2])
    body = doc.getroot().find(f"{{{SOAP}}}Body")
    message = body[0] if body is not None and len(body) else None
    if message is None:
        print("no message in the body", file=sys.stderr)
        return 1

    # The validator must bite: a match or Hello without MetadataVersion is invalid.
    broken = etree.fromstring(etree.tostring(message))
    for version in broken.iter(f"{{{DISCOVERY}}}MetadataVersion"):
        version.getparent().remove(version)
        if xsd.validate(etree.ElementTree(broken)):
            print("the schema took a message without MetadataVersion", file=sys.stderr)
            return 1
        break

    ok = True
    for tree, what in ((doc, "envelope"), (etree.ElementTree(message), "message")):
        if not xsd.validate(tree):
            ok = False
            for error in xsd.error_log:
                print(f"{what}: line {error.line}: {error.message}", file=sys.stderr)
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main())
