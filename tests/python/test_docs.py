"""What help(kpz) shows, and the type information shipped with the package."""

import ast
import inspect
import pathlib
import pydoc
import re
import typing

import kpz
from kpz import _kpz


def test_help_shows_every_public_name_with_its_contract():
    text = pydoc.render_doc(kpz, renderer=pydoc.plaintext)
    for name in kpz.__all__:
        obj = getattr(kpz, name)
        if callable(obj) and typing.get_origin(obj) is None:  # not the Source alias
            assert inspect.getdoc(obj), f"{name} has no docstring"
            assert name in text
    assert re.search(r"preview\(source\b.*\*, upright\b.*= False\)", text)
    assert re.search(r"screennail = preview\(source\b", text)  # the alias, told as one
    assert "one thread at a time" in text.replace("\n", " ")


def test_every_property_of_rawfile_is_typed():
    hints = {}
    for name, member in inspect.getmembers(kpz.RawFile):
        if isinstance(member, property):
            hints[name] = inspect.signature(member.fget).return_annotation
    assert "screennail_offset" in hints and "date_time_original" in hints
    assert all(h is not inspect.Signature.empty for h in hints.values()), hints


def test_the_stub_names_exactly_the_extension_module_s_functions():
    stub = pathlib.Path(kpz.__file__).with_name("_kpz.pyi")
    tree = ast.parse(stub.read_text(encoding="utf-8"))
    stubbed = {n.name for n in tree.body if isinstance(n, ast.FunctionDef)}
    stubbed |= {n.target.id for n in tree.body if isinstance(n, ast.AnnAssign)}
    stubbed = {n for n in stubbed if not n.startswith("_")} | {"__version__"} & stubbed
    actual = {n for n in dir(_kpz) if not n.startswith("_")} | {"__version__"} & set(dir(_kpz))
    assert stubbed == actual


def test_the_stub_names_exactly_the_kit_s_functions_and_classes():
    stub = pathlib.Path(kpz.__file__).with_name("_kpz.pyi")
    tree = ast.parse(stub.read_text(encoding="utf-8"))
    (kit_class,) = [n for n in tree.body if isinstance(n, ast.ClassDef) and n.name == "_Kit"]
    stubbed = {n.name for n in kit_class.body if isinstance(n, ast.FunctionDef)}
    stubbed |= {n.target.id for n in kit_class.body if isinstance(n, ast.AnnAssign)}
    actual = {n for n in dir(_kpz.kit) if not n.startswith("_")}
    assert stubbed == actual


def test_the_source_type_is_a_real_type_in_the_stubs_and_the_package():
    args = typing.get_args(kpz.Source)
    assert str in args and bytes in args and memoryview in args and kpz.BinaryReader in args
    stub = pathlib.Path(kpz.__file__).with_name("_kpz.pyi").read_text(encoding="utf-8")
    assert "source: Source" in stub and "source: Any" not in stub
    assert inspect.signature(kpz.preview).parameters["source"].annotation == "Source"


def test_the_package_says_it_is_typed():
    assert pathlib.Path(kpz.__file__).with_name("py.typed").exists()


def test_every_name_the_extension_module_binds_is_used_by_the_package():
    package = pathlib.Path(kpz.__file__).parent
    text = "\n".join(p.read_text(encoding="utf-8") for p in sorted(package.rglob("*.py")))
    unused = [f"_kpz.{n}" for n in dir(_kpz)
              if not n.startswith("_") and n != "kit" and not re.search(rf"_kpz\.{n}\b", text)]
    unused += [f"kit.{n}" for n in dir(_kpz.kit)
               if not n.startswith("_") and not re.search(rf"\bkit\.{n}\b", text)]
    assert unused == []
