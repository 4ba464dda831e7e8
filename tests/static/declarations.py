"""What headers declare of Windows, as libclang reads them for one target: to compare mingw-w64's headers with the Windows SDK's.

Types are compared as the processor sees them: size, and whether a number is signed. An enumeration is equal to each integer of
its size, a pointer to each other pointer.
"""

import re
import subprocess
import sys
from types import SimpleNamespace

sys.path.append("/usr/lib/python3/dist-packages") # Debian's bindings of libclang, which other Pythons do not search
from clang.cindex import CursorKind, Diagnostic, Index, TypeKind  # noqa: E402

from versions import llvm  # noqa: E402

SIGNED = {TypeKind.CHAR_S, TypeKind.SCHAR, TypeKind.SHORT, TypeKind.INT, TypeKind.LONG, TypeKind.LONGLONG}
UNSIGNED = {TypeKind.BOOL, TypeKind.CHAR_U, TypeKind.UCHAR, TypeKind.WCHAR, TypeKind.CHAR16, TypeKind.CHAR32, TypeKind.USHORT,
            TypeKind.UINT, TypeKind.ULONG, TypeKind.ULONGLONG}
FLOATING = {TypeKind.FLOAT, TypeKind.DOUBLE, TypeKind.LONGDOUBLE}
RECORDS = {CursorKind.STRUCT_DECL, CursorKind.UNION_DECL, CursorKind.CLASS_DECL}
SCOPES = {CursorKind.LINKAGE_SPEC, CursorKind.NAMESPACE}
NAME = "declarations.cpp" # no file has it
# What function-like macros are called with, if they take one argument or two.
SAMPLES = ("0u", "5u", "0x80070005u", "0xA000000Cu", "0x12345678u")


def shape(kind):
    """A type as the processor sees it."""
    kind = kind.get_canonical()
    if kind.kind == TypeKind.VOID:
        return "void"
    if kind.kind == TypeKind.CONSTANTARRAY:
        return f"{shape(kind.element_type)}[{kind.element_count}]"
    for letter, kinds in (("i", SIGNED), ("u", UNSIGNED), ("f", FLOATING), ("e", {TypeKind.ENUM}), ("r", {TypeKind.RECORD})):
        if kind.kind in kinds:
            return f"{letter}{kind.get_size()}"
    return "p"


def signature(function):
    """The shapes of a function's result and parameters."""
    return [shape(function.result_type), *(shape(kind) for kind in function.type.argument_types())]


def is_equal(ours, theirs):
    """Whether two descriptions are the same."""
    if isinstance(ours, (list, tuple)):
        return len(ours) == len(theirs) and all(map(is_equal, ours, theirs))
    if isinstance(ours, str) and re.match(r"e\d.*,[eiu]\d|[iu]\d.*,e\d", f"{ours},{theirs}"):
        return ours[1:] == theirs[1:]
    return ours == theirs


def fields(kind, prefix="", start=0):
    """The fields of a structure, those of its nested ones too, with where they lie, in bits."""
    for field in kind.get_fields():
        at = start + field.get_field_offsetof()
        inner = field.type.get_canonical()
        name = prefix + ("" if field.is_anonymous() else field.spelling)
        if name != prefix:
            yield name, (at, shape(inner), field.get_bitfield_width() if field.is_bitfield() else 0)
            name += "."
        if inner.kind == TypeKind.RECORD:
            yield from fields(inner, name, at)


def slots(record):
    """The functions of an interface's table, in its order."""
    methods = []
    for child in record.get_children():
        if child.kind == CursorKind.CXX_BASE_SPECIFIER:
            methods += slots(child.type.get_canonical().get_declaration())
        elif child.kind == CursorKind.CXX_METHOD and child.is_virtual_method():
            method = child.spelling, signature(child)
            if method not in methods: # else it overrides
                methods.append(method)
    return methods


class Headers:
    """What some text, mostly includes, declares for one target."""

    def __init__(self, options, text):
        resources = subprocess.run([llvm("clang"), "-print-resource-dir"], capture_output=True, text=True, check=True).stdout
        self.options = [*options, "-resource-dir", resources.strip()]
        self.text = text

    def parse(self, more=""):
        arguments = [*self.options, "-w", "-ferror-limit=0"]
        unit = Index.create().parse(NAME, arguments, [(NAME, self.text + more)])
        errors = [str(d) for d in unit.diagnostics if d.severity >= Diagnostic.Error]
        if errors and not more:
            sys.exit(f"the headers cannot be read: {errors[0]}")
        return unit

    def preprocess(self, *arguments, more=""):
        command = [llvm("clang++"), *self.options, "-w", "-E", "-P", *arguments, "-x", "c++", "-"]
        return subprocess.run(command, input=self.text + more, capture_output=True, text=True, check=True).stdout

    def macros(self):
        """The macros, and how many arguments they take (None without parentheses)."""
        found = re.findall(r"^#define (\w+)(\([^)]*\))?", self.preprocess("-dM"), re.M)
        return {name: parameters.count(",") + 1 if parameters else None for name, parameters in found}

    def declarations(self, names):
        """What is declared under these names: descriptions by kind and name; the names of numbers and of classes; and the
        functions that the headers define, with the number of their parameters."""
        found, numbers, classes, inline = {}, set(), set(), {}

        def visit(cursor):
            for child in cursor.get_children():
                name = child.spelling
                if child.kind in RECORDS and name in names:
                    classes.add(name)
                if child.kind in SCOPES:
                    if child.kind == CursorKind.LINKAGE_SPEC or name == "Gdiplus":
                        visit(child)
                elif child.kind == CursorKind.ENUM_DECL:
                    numbers.update(value.spelling for value in child.get_children() if value.spelling in names)
                elif name not in names:
                    continue
                elif child.kind == CursorKind.FUNCTION_DECL:
                    if not re.search(r"/ucrt/|/c\+\+/", str(child.location.file)): # what is Windows', not the runtime's
                        found["function", name] = signature(child)
                        if child.is_definition():
                            inline[name] = len(found["function", name]) - 1
                elif child.kind == CursorKind.VAR_DECL:
                    numbers.add(name)
                elif child.kind == CursorKind.TYPEDEF_DECL or child.kind in RECORDS and child.is_definition():
                    found.update(self.describe_type(name, child.type.get_canonical()))

        visit(self.parse().cursor)
        return SimpleNamespace(found=found, numbers=numbers, classes=classes, inline=inline)

    @staticmethod
    def describe_type(name, kind):
        declaration = kind.get_declaration()
        if kind.kind != TypeKind.RECORD:
            yield ("type", name), shape(kind)
        elif table := slots(declaration):
            yield ("interface", name), table
        elif kind.get_size() > 0:
            yield ("structure", name), {"": (0, kind.get_size() * 8, kind.get_align() * 8), **dict(fields(kind))}

    def evaluate(self, expressions):
        """The values of those of the expressions that are integers or addresses known to the compiler."""
        begin = "\nnamespace Gdiplus {} using namespace Gdiplus;\n"
        # The condition lets the compiler compute what is no constant expression, such as an address.
        lines = [f"enum : unsigned long long {{ value_{i} = (__builtin_constant_p(1) ? (unsigned long long)({text}) : 0) }};\n"
                 for i, text in enumerate(expressions)]
        unit = self.parse(begin + "".join(lines))
        first = (self.text + begin).count("\n") + 1
        wrong = {d.location.line - first for d in unit.diagnostics if d.severity >= Diagnostic.Error}
        values = {child.spelling: child.enum_value for enumeration in unit.cursor.get_children()
                  if enumeration.kind == CursorKind.ENUM_DECL and str(enumeration.location.file) == NAME
                  for child in enumeration.get_children()}
        return {expression: values[f"value_{i}"] for i, expression in enumerate(expressions) if i not in wrong}

    def texts(self, names):
        """What macros stand for, and the values of variables that are GUIDs."""
        marks = "".join(f'\n"text of {name}" {name} ;' for name in names)
        whole = self.preprocess(more=marks + "\n")
        # This processor has one convention.
        whole = re.sub(r"__attribute__\(\(__(stdcall|cdecl)__\)\)|\b__(stdcall|cdecl)\b", "", whole)
        texts = {name: " ".join(text.split()) for name, text in re.findall(r'^"text of (\w+)" (.*) ;$', whole, re.M)}
        guids = {name: [int(number, 0) for number in re.findall(r"\b(?:0[xX][0-9a-fA-F]+|\d+)(?=[uUlL]*\b)", value)]
                 for name, value in re.findall(r"\bGUID\s[^;={]*\b(\w+)\s*=\s*(\{[^;]*\})\s*;", whole)}
        return texts, guids


def differences(ours, theirs, name):
    """What to say of two descriptions."""
    if isinstance(ours, dict):
        wrong = sorted(key for key in ours.keys() & theirs.keys() if not is_equal(ours[key], theirs[key]))
        for key in wrong:
            if key.rpartition(".")[0] not in wrong or key.rpartition(".")[0] == "": # what lies in it has moved with it
                yield from differences(ours[key], theirs[key], f"{name}.{key}" if key else name)
    elif not is_equal(ours, theirs):
        yield f"{name} is {ours} here and {theirs} in the SDK"


def compare(ours, theirs, names, each=map):
    """What these names stand for in both headers, as pairs of descriptions by kind and name."""
    def on_both(ask):
        return list(each(ask, (ours, theirs)))

    macros = on_both(Headers.macros)
    declared = on_both(lambda side: side.declarations(names))
    found = [side.found for side in declared]
    pairs = {key: (found[0][key], found[1][key]) for key in found[0].keys() & found[1].keys()}

    plain = [{name for name, count in side.items() if count is None} for side in macros]
    constants = sorted(names & set().union(*plain, *(side.numbers for side in declared)))
    arguments = {1: SAMPLES, 2: [f"{a}, {b}" for a in SAMPLES for b in SAMPLES]}
    callable_names = {**macros[0], **macros[1], **declared[1].inline}
    calls = [f"{name}({some})" for name in sorted(names & callable_names.keys())
             for some in arguments.get(callable_names[name], ())]
    # An interface has its GUID, and so has a class, which CLSID_... names in headers or in a library.
    classes = declared[0].classes | {name.partition("_")[2] for name in names if name.startswith(("CLSID_", "IID_"))}
    parts = {name: [f"__uuidof({name}).Data{i}" for i in (1, 2, 3)] + [f"__uuidof({name}).Data4[{i}]" for i in range(8)]
             for name in sorted(classes)}
    values = on_both(lambda side: side.evaluate([*constants, *calls, *(part for some in parts.values() for part in some)]))
    pairs |= {("value", name): (values[0][name], values[1][name])
              for name in {*constants, *calls} & values[0].keys() & values[1].keys()}

    others = [name for name in constants if ("value", name) not in pairs]
    texts, guids = zip(*on_both(lambda side: side.texts(others)))
    for side, found in zip(values, guids):
        for name, some in parts.items():
            if some[0] in side:
                found[name] = [side[part] for part in some]
                for prefix in ("CLSID_", "IID_"):
                    found.setdefault(prefix + name, found[name])
    pairs |= {("GUID", name): (guids[0][name], guids[1][name]) for name in (names | classes) & guids[0].keys() & guids[1].keys()}
    pairs |= {("text", name): (texts[0][name], texts[1][name]) for name in others
              if ("GUID", name) not in pairs and all(side.get(name, name) != name for side in texts)}
    return pairs
