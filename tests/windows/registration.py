"""What the registration of the component is in the registry."""

from __future__ import annotations

from wine import Registry

CLASS = "{6D3DC26E-FE47-4582-BD90-5E241A8DBC8B}"
INTERFACE = "{CCB76FB7-FDFA-4D13-B7DC-5809191A4643}"
TYPE_LIBRARY = "{0E0E8AE5-6B54-4B7B-9C5D-6F3B3F1A7D07}"
PROG_ID = "KXData7.CKXData7Obj"
TITLE = "Velkaris Machine Data Library 7"


def registration(library: str) -> Registry:
    """All keys below Software\\Classes that are the registration of this file."""
    class_key, interface_key = f"CLSID\\{CLASS}", f"Interface\\{INTERFACE}"
    library_key = f"TypeLib\\{TYPE_LIBRARY}"
    keys: Registry = {
        class_key: {"@": TITLE},
        class_key + r"\InprocServer32": {"@": library, "ThreadingModel": "Apartment"},
        class_key + r"\ProgID": {"@": PROG_ID + ".1"},
        class_key + r"\VersionIndependentProgID": {"@": PROG_ID},
        class_key + r"\TypeLib": {"@": TYPE_LIBRARY},
        class_key + r"\Version": {"@": "1.0"},
        class_key + r"\Programmable": {"@": ""},
        PROG_ID: {"@": TITLE},
        PROG_ID + r"\CLSID": {"@": CLASS},
        PROG_ID + r"\CurVer": {"@": PROG_ID + ".1"},
        PROG_ID + ".1": {"@": TITLE},
        PROG_ID + r".1\CLSID": {"@": CLASS},
        library_key: {},
        library_key + r"\1.0": {"@": TITLE},
        library_key + r"\1.0\0": {},
        library_key + r"\1.0\0\win64": {"@": library},
        library_key + r"\1.0\FLAGS": {"@": "0"},
        interface_key: {"@": "_CKXData7Obj"},
        interface_key + r"\ProxyStubClsid32": {"@": "{00020424-0000-0000-C000-000000000046}"},
        interface_key + r"\TypeLib": {"@": TYPE_LIBRARY, "Version": "1.0"},
    }
    return {key.lower(): values for key, values in keys.items()}


# What a user's classes stand in; Wine has it with the first one.
PARENTS: Registry = {key: {} for key in ("", "clsid", "interface", "typelib")}


def difference(before: Registry, after: Registry) -> Registry:
    """The keys that were added. It is an error when one was changed or taken out."""
    for key, values in before.items():
        if after.get(key) != values:
            raise AssertionError(f"{key} was {values}, is {after.get(key)}")
    # Wine has copies of some keys for 32-bit programs.
    return {
        key: values
        for key, values in after.items()
        if key not in before and not key.startswith("wow6432node\\")
    }
