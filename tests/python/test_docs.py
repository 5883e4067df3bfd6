"""What help(kpz) shows, and the type information shipped with the package."""

import ast
import inspect
import pathlib
import pydoc
import re

import kpz
from kpz import _kpz


def test_help_shows_every_public_name_with_its_contract():
    text = pydoc.render_doc(kpz, renderer=pydoc.plaintext)
    for name in kpz.__all__:
        obj = getattr(kpz, name)
        if callable(obj):
            assert inspect.getdoc(obj), f"{name} has no docstring"
            assert name in text
    assert re.search(r"screennail\(source\b.*\*, upright\b.*= False\)", text)
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
    actual = {n for n in dir(_kpz) if not n.startswith("_")}
    assert stubbed == actual


def test_the_package_says_it_is_typed():
    assert pathlib.Path(kpz.__file__).with_name("py.typed").exists()
