"""Reads a 64-bit Windows image from its bytes, as the loader does: for the checks beside this file."""

import struct

# Fields of the headers: how far behind the image's signature, and their format.
FIELDS = {
    "Signature": (0x00, "4s"), "Machine": (0x04, "H"), "NumberOfSections": (0x06, "H"), "NumberOfSymbols": (0x10, "I"),
    "SizeOfOptionalHeader": (0x14, "H"), "Characteristics": (0x16, "H"), "Magic": (0x18, "H"),
    "AddressOfEntryPoint": (0x28, "I"), "ImageBase": (0x30, "Q"), "SectionAlignment": (0x38, "I"),
    "FileAlignment": (0x3C, "I"), "MajorOperatingSystemVersion": (0x40, "H"), "MinorOperatingSystemVersion": (0x42, "H"),
    "MajorSubsystemVersion": (0x48, "H"), "MinorSubsystemVersion": (0x4A, "H"), "Win32VersionValue": (0x4C, "I"),
    "SizeOfImage": (0x50, "I"), "SizeOfHeaders": (0x54, "I"), "Subsystem": (0x5C, "H"), "DllCharacteristics": (0x5E, "H"),
    "SizeOfStackReserve": (0x60, "Q"), "SizeOfStackCommit": (0x68, "Q"), "SizeOfHeapReserve": (0x70, "Q"),
    "SizeOfHeapCommit": (0x78, "Q"), "LoaderFlags": (0x80, "I"), "NumberOfRvaAndSizes": (0x84, "I"),
}
DIRECTORIES = ("Export", "Import", "Resource", "Exception", "Security", "BaseReloc", "Debug", "Architecture", "GlobalPtr", "TLS",
               "LoadConfig", "BoundImport", "IAT", "DelayImport", "ComDescriptor", "Reserved")
DIRECTORY_TABLE = 0x88

WRITE = 0x80000000
EXECUTE = 0x20000000
READ = 0x40000000


class Section:
    def __init__(self, header, data):
        name, self.size, self.address, self.raw_size, self.raw, *_, self.characteristics = struct.unpack_from("<8s6I2HI", data, header)
        self.header = header
        self.name = name.rstrip(b"\0").decode()

    def holds(self, address, size=1):
        return self.address <= address and address + size <= self.address + self.size

    def may(self, right):
        return bool(self.characteristics & right)


class Image:
    """Raises ValueError or struct.error where the bytes are no such image at all."""

    def __init__(self, data):
        self.data = bytes(data)
        self.signature = struct.unpack_from("<I", self.data, 0x3C)[0]
        if self.data[:2] != b"MZ" or self["Signature"] != b"PE\0\0" or self["Magic"] != 0x20B:
            raise ValueError("no 64-bit Windows image")
        table = self.signature + 0x18 + self["SizeOfOptionalHeader"]
        self.sections = [Section(table + 40 * i, self.data) for i in range(self["NumberOfSections"])]
        self.end_of_headers = table + 40 * len(self.sections)

    def __getitem__(self, field):
        offset, form = FIELDS[field]
        return struct.unpack_from("<" + form, self.data, self.signature + offset)[0]

    def directory(self, name):
        """Where that directory is, relative to the image, and its size."""
        return struct.unpack_from("<II", self.data, self.signature + DIRECTORY_TABLE + 8 * DIRECTORIES.index(name))

    def section_of(self, address, size=1):
        return next((section for section in self.sections if section.holds(address, size)), None)

    def place(self, address, size=1):
        """Where in the file that address of the image is."""
        section = self.section_of(address, size)
        if section is None or address + size > section.address + section.raw_size:
            raise ValueError(f"{address:#x} is not in the file")
        return section.raw + address - section.address

    def unpack(self, form, address):
        return struct.unpack_from("<" + form, self.data, self.place(address, struct.calcsize("<" + form)))

    def text(self, address):
        start = self.place(address)
        return self.data[start : self.data.index(b"\0", start)].decode()

    def pointer(self, address):
        """What the pointer at that address points to, both relative to the image; nothing for a null pointer."""
        value = self.unpack("Q", address)[0]
        return value - self["ImageBase"] if value else None

    def import_descriptors(self):
        """Of each library: lookup table, time stamp, forwarder chain, name and address table."""
        address, _ = self.directory("Import")
        while any(descriptor := self.unpack("5I", address)):
            yield descriptor
            address += 20

    def thunks(self, table):
        while thunk := self.unpack("Q", table)[0]:
            yield thunk
            table += 8

    def delay_import_descriptors(self):
        """Of each delay-loaded library: attributes, name, module handle, address, lookup, bound and unload table, time stamp."""
        address, _ = self.directory("DelayImport")
        while address and any(descriptor := self.unpack("8I", address)):
            yield descriptor
            address += 32

    def functions(self, library, lookup):
        """Of a library's lookup table: pairs of library (in lower case) and function (a number stands for itself)."""
        return [(self.text(library).lower(), f"#{thunk & 0xFFFF}" if thunk >> 63 else self.text(thunk + 2))
                for thunk in self.thunks(lookup)]

    def imports(self):
        """The imported functions, as pairs, less those that are delay-loaded."""
        return [pair for lookup, _, _, library, addresses in self.import_descriptors()
                for pair in self.functions(library, lookup or addresses)]

    def delay_imports(self):
        """The delay-loaded functions, as pairs."""
        return [pair for _, library, _, _, lookup, *_ in self.delay_import_descriptors() for pair in self.functions(library, lookup)]

    def relocations(self):
        """The places that the loader relocates: type and address of each."""
        at, size = self.directory("BaseReloc")
        end = at + size
        while at < end:
            page, length = self.unpack("II", at)
            if length < 8 or length % 4 or at + length > end:
                raise ValueError(f"a block of relocations has {length} bytes")
            for entry in self.unpack(f"{(length - 8) // 2}H", at + 8):
                yield entry >> 12, page + (entry & 0xFFF)
            at += length

    def tls_callbacks(self):
        """The functions that the loader calls for each thread."""
        if not self.directory("TLS")[0]:
            return
        at = self.pointer(self.directory("TLS")[0] + 0x18)
        while at is not None and (callback := self.pointer(at)) is not None:
            yield callback
            at += 8
