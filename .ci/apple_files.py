"""Checks the property lists and the Swift package's list of sources."""

import pathlib
import plistlib
import re
import sys

root = pathlib.Path(__file__).resolve().parent.parent
corebluetooth = root / "corvane/platform/corebluetooth"


def check(holds, what):
    if not holds:
        sys.exit(what)


info = plistlib.loads((root / "examples/apple/Info.plist").read_bytes())
check(info["NSBluetoothAlwaysUsageDescription"], "Info.plist: no text for the permission")
check("bluetooth-central" in info["UIBackgroundModes"], "Info.plist: no background mode")

privacy = plistlib.loads((corebluetooth / "PrivacyInfo.xcprivacy").read_bytes())
check(privacy["NSPrivacyTracking"] is False, "PrivacyInfo: tracking")
for key in ("NSPrivacyTrackingDomains", "NSPrivacyCollectedDataTypes", "NSPrivacyAccessedAPITypes"):
    check(privacy[key] == [], f"PrivacyInfo: {key}")

# The library on these systems is the core and this one back end.
wanted = {path for path in (root / "corvane").rglob("*") if path.suffix in (".cpp", ".mm")}
wanted -= {path for path in wanted if path.parent.parent == corebluetooth.parent and path.parent != corebluetooth}

package = (root / "Package.swift").read_text()
listed = set()
for entry in re.search(r"sources: \[(.*?)\]", package, re.DOTALL)[1].split(","):
    if entry := entry.strip().strip('"'):
        check((root / entry).exists(), f"Package.swift: {entry} is not there")
        listed |= {path for path in [root / entry, *(root / entry).rglob("*")] if path.suffix in (".cpp", ".mm")}
check(listed == wanted, f"Package.swift: sources differ: {sorted(map(str, listed ^ wanted))}")

for entry in re.findall(r'"([^"]+)"', re.search(r"exclude: \[(.*?)\]", package, re.DOTALL)[1]):
    check((root / entry).exists() or entry.startswith("corvane/platform/"), f"Package.swift: {entry} is not there")
