#!/usr/bin/env python3
"""Makes the Windows installer: every file of a folder, the class, links in the start menu.

    installer.py FOLDER VERSION INSTALLER

It installs for all users, with ALLUSERS=2 MSIINSTALLPERUSER=1 on msiexec's command line for the caller alone: Windows
then takes ALLUSERS away and asks for no rights. The time in it is the one of SOURCE_DATE_EPOCH.
"""

from __future__ import annotations

import hashlib
import os
import pathlib
import subprocess
import sys
import tempfile
import uuid
from typing import List
from xml.sax.saxutils import quoteattr

# Installations know each other by the ids that come of this one.
PRODUCT = uuid.UUID("6b0f1c7e-2d34-4b58-9a57-0d7c1e5a7a11")

CLASS = "{6D3DC26E-FE47-4582-BD90-5E241A8DBC8B}"
INTERFACE = "{CCB76FB7-FDFA-4D13-B7DC-5809191A4643}"
LIBRARY = "{0E0E8AE5-6B54-4B7B-9C5D-6F3B3F1A7D07}"
AUTOMATION_PROXY = "{00020424-0000-0000-C000-000000000046}"
TITLE = "Velkaris Machine Data Library 7"
MAKER = "KXData7 maintainers"
PROG_ID = "KXData7.CKXData7Obj"
FILE = "[INSTALLFOLDER]KXData7.dll"

# What the library's own registration writes: key, name of the value, value.
REGISTRATION = [
    (f"CLSID\\{CLASS}", "", TITLE),
    (f"CLSID\\{CLASS}\\InprocServer32", "", FILE),
    (f"CLSID\\{CLASS}\\InprocServer32", "ThreadingModel", "Apartment"),
    (f"CLSID\\{CLASS}\\ProgID", "", PROG_ID + ".1"),
    (f"CLSID\\{CLASS}\\VersionIndependentProgID", "", PROG_ID),
    (f"CLSID\\{CLASS}\\TypeLib", "", LIBRARY),
    (f"CLSID\\{CLASS}\\Version", "", "1.0"),
    (f"CLSID\\{CLASS}\\Programmable", "", ""),
    (PROG_ID, "", TITLE),
    (f"{PROG_ID}\\CLSID", "", CLASS),
    (f"{PROG_ID}\\CurVer", "", PROG_ID + ".1"),
    (f"{PROG_ID}.1", "", TITLE),
    (f"{PROG_ID}.1\\CLSID", "", CLASS),
    (f"TypeLib\\{LIBRARY}\\1.0", "", TITLE),
    (f"TypeLib\\{LIBRARY}\\1.0\\0\\win64", "", FILE),
    (f"TypeLib\\{LIBRARY}\\1.0\\FLAGS", "", "0"),
    (f"Interface\\{INTERFACE}", "", "_CKXData7Obj"),
    (f"Interface\\{INTERFACE}\\ProxyStubClsid32", "", AUTOMATION_PROXY),
    (f"Interface\\{INTERFACE}\\TypeLib", "", LIBRARY),
    (f"Interface\\{INTERFACE}\\TypeLib", "Version", "1.0"),
]

# Where an installation says, to those that come after it, that it is there and in which folder.
OWN_KEY = "Software\\KXData7"

# What depends on an installation that is there. One for all users and one for the caller exclude each other: of two
# registrations a program would get the one or the other, by the rights that it happens to have.
CONDITIONS = [
    (
        "REMOVE OR REINSTALL OR NOT FOLDERFORALL OR ALLUSERS=1",
        "KXData7 is installed for all users of this computer: use that, or have it removed before you install it for"
        " yourself.",
    ),
    (
        "REMOVE OR REINSTALL OR NOT FOLDERFORONE OR NOT ALLUSERS=1",
        "KXData7 is installed for you alone. To upgrade that, say ALLUSERS=2 MSIINSTALLPERUSER=1 behind the installer"
        " in msiexec's command line; to install it for all users, remove it first.",
    ),
]
# Properties, their values and when they are set. Repair and removal are for whom the installation is, where it is.
SETTINGS = [
    ("ALLUSERS", "1", "FOLDERFORALL AND (REMOVE OR REINSTALL)"),
    ("ALLUSERS", "{}", "FOLDERFORONE AND (REMOVE OR REINSTALL)"),
    ("INSTALLFOLDER", "[FOLDERFORALL]", "FOLDERFORALL"),
    ("INSTALLFOLDER", "[FOLDERFORONE]", "FOLDERFORONE"),
    ("INSTALLFOLDER", "[LocalAppDataFolder]Programs\\KXData7", "NOT INSTALLFOLDER AND NOT ALLUSERS=1"),
]
# The first place in the order of what is done that comes after the conditions.
AFTER_CONDITIONS = 101


def guid(name: str) -> str:
    return str(uuid.uuid5(PRODUCT, name)).upper()


def digest(folder: pathlib.Path) -> str:
    """Of all that an installer of this folder is made from."""
    digest = hashlib.sha256(pathlib.Path(__file__).read_bytes())
    for path in sorted(folder.rglob("*")):
        digest.update(path.relative_to(folder).as_posix().encode() + b"\0")
        digest.update(path.read_bytes() if path.is_file() else b"")
    return digest.hexdigest()


def registry_value(key: str, name: str, value: str, more: str = "") -> str:
    """For all users or for the caller, as the installation is."""
    named = f" Name={quoteattr(name)}" if name else ""
    return (
        f'<RegistryValue Root="HKMU" Key={quoteattr(key)}{named} Type="string" Value={quoteattr(value)}{more}/>\n'
    )


class Installer:
    def __init__(self, folder: pathlib.Path, version: str) -> None:
        self.folder, self.version = folder, version
        self.components: List[str] = []

    def component(self, name: str, content: str) -> str:
        """A component, which the one feature is made of."""
        number = len(self.components)
        self.components.append(f'<ComponentRef Id="c{number}"/>')
        return f'<Component Id="c{number}" Guid="{guid(name)}" Win64="yes">{content}</Component>\n'

    def files(self, folder: pathlib.Path) -> str:
        """The folder's files, each a component, and its folders."""
        text = ""
        for path in sorted(folder.iterdir()):
            name = path.relative_to(self.folder).as_posix()
            named = f"Name={quoteattr(path.name)}"
            if path.is_dir():
                text += f'<Directory Id="d{guid(name)[:8]}" {named}>\n{self.files(path)}</Directory>\n'
                continue
            content = f'<File Id="f{len(self.components)}" {named} Source={quoteattr(name)} KeyPath="yes"/>\n'
            if name == "KXData7.dll":
                content += "".join(registry_value("Software\\Classes\\" + key, *row) for key, *row in REGISTRATION)
            text += self.component(name, content)
        return text

    def links(self) -> str:
        return self.component(
            "links",
            '<Shortcut Id="s1" Directory="StartMenu" Name="Read me" Target="[INSTALLFOLDER]README.txt"/>\n'
            '<Shortcut Id="s2" Directory="StartMenu" Name="Documents" Target="[INSTALLFOLDER]docs"/>\n'
            '<RemoveFolder Id="StartMenu" On="uninstall"/>\n'
            + registry_value(OWN_KEY, "Folder", "[INSTALLFOLDER]", ' KeyPath="yes"'),
        )

    def searches(self) -> str:
        return "".join(
            f'<Property Id="{name}"><RegistrySearch Id="{name}" Root="{root}" Key="{OWN_KEY}" Name="Folder" Type="raw"'
            ' Win64="yes"/></Property>\n'
            for name, root in (("FOLDERFORALL", "HKLM"), ("FOLDERFORONE", "HKCU"))
        )

    def conditions(self) -> str:
        return "".join(
            f"<Condition Message={quoteattr(text)}>{condition}</Condition>\n" for condition, text in CONDITIONS
        )

    def settings(self) -> str:
        actions = order = ""
        for number, (name, value, condition) in enumerate(SETTINGS, AFTER_CONDITIONS):
            actions += (
                f'<CustomAction Id="Set{number}" Property="{name}" Value={quoteattr(value)} Impersonate="yes"/>\n'
            )
            order += f'<Custom Action="Set{number}" Sequence="{number}">{condition}</Custom>\n'
        return f"{actions}<InstallExecuteSequence>\n{order}</InstallExecuteSequence>\n"

    def document(self) -> str:
        files, links = self.files(self.folder), self.links()
        return f"""<?xml version="1.0" encoding="utf-8"?>
<Wix xmlns="http://schemas.microsoft.com/wix/2006/wi">
<Product Name="KXData7" Id="{guid("product " + self.version)}" UpgradeCode="{guid("upgrade")}" Language="1033"
 Version="{self.version}" Manufacturer="{MAKER}">
<Package Compressed="yes" InstallerVersion="500" InstallScope="perMachine"/>
<MajorUpgrade DowngradeErrorMessage="A later version of KXData7 is installed: remove it first."/>
<Media Id="1" Cabinet="files.cab" EmbedCab="yes"/>
<Property Id="ARPNOMODIFY" Value="1"/>
{self.searches()}{self.conditions()}{self.settings()}<Directory Id="TARGETDIR" Name="SourceDir">
<Directory Id="ProgramFiles64Folder">
<Directory Id="INSTALLFOLDER" Name="KXData7">
{files}</Directory>
</Directory>
<Directory Id="ProgramMenuFolder">
<Directory Id="StartMenu" Name="KXData7">
{links}</Directory>
</Directory>
</Directory>
<Feature Id="All" Level="1">
{"".join(self.components)}
</Feature>
</Product>
</Wix>
"""


# What wixl 0.101 does otherwise than it should: the root that depends on for whom it is, and what an installation with
# windows hands to its part that has the rights.
CORRECTIONS = [
    "UPDATE Registry SET Root = -1 WHERE Root = 4",
    "UPDATE Property SET Value = 'FOLDERFORALL;FOLDERFORONE;WIX_DOWNGRADE_DETECTED;WIX_UPGRADE_DETECTED'"
    " WHERE Property = 'SecureCustomProperties'",
]


def make(folder: pathlib.Path, version: str, installer: pathlib.Path) -> None:
    at_that_time = ["faketime", "@" + os.environ["SOURCE_DATE_EPOCH"]]
    with tempfile.NamedTemporaryFile("w", encoding="utf-8", suffix=".wxs") as document:
        document.write(Installer(folder, version).document())
        document.flush()
        # It finds files by names without a root alone.
        command = ["wixl", "--arch", "x64", "-o", str(installer.resolve()), document.name]
        subprocess.run([*at_that_time, *command], cwd=folder, check=True)
    # wixl gives a package a code by chance.
    summary = ["KXData7", MAKER, "x64;1033", "{" + guid(digest(folder)) + "}"]
    subprocess.run([*at_that_time, "msibuild", installer, "-q", *CORRECTIONS, "-s", *summary], check=True)


def main() -> int:
    if len(sys.argv) != 4:
        print(__doc__, file=sys.stderr)
        return 2
    make(pathlib.Path(sys.argv[1]), sys.argv[2], pathlib.Path(sys.argv[3]))
    return 0


if __name__ == "__main__":
    sys.exit(main())
