"""Variables, of lines and binary."""

import pytest

import genreg

FILE = b"""\
# ports of the product
PORT = 50000   # main \xe9
  HOST="a  b"
odd line
TWICE = 1
TWICE = 2
NONE =
"""


@pytest.fixture
def variables(folder):
    return genreg.Variables(folder.write(FILE))


def test_reads_as_a_mapping(variables):
    assert dict(variables) == {"PORT": "50000", "HOST": '"a  b"', "TWICE": "1", "NONE": ""}
    assert len(variables) == 4 and "PORT" in variables and "odd" not in variables
    assert variables.get("odd") is None and variables.setdefault("PORT", "1") == "50000"
    assert variables.comment("PORT") == "main \udce9" and variables.comment("HOST") is None
    assert [each.value for each in variables.entries() if each.name == "TWICE"] == ["1", "2"]


def test_changes_leave_every_other_byte(folder, variables):
    variables["PORT"] = "50001"
    variables.set("HOST", "c", comment="new \udcff")
    variables["ADDED"] = "caf\xe9"
    del variables["NONE"]
    assert folder.bytes() == (
        FILE.replace(b"50000", b"50001")
        .replace(b'HOST="a  b"', b"HOST=c # new \xff")
        .replace(b"NONE =\n", b"ADDED = caf\xc3\xa9\n")
    )
    variables.set("HOST", "c", comment=None)
    assert b"  HOST=c\n" in folder.bytes()
    unchanged = folder.bytes()
    variables["PORT"] = "50001"
    assert folder.bytes() == unchanged


def test_the_tool_reads_what_is_written_and_back(folder, variables):
    variables.set("NEW", "x", comment="told")
    (told,) = folder.tool("varval", "get", folder.path(), "NEW")
    assert (told["value"], told["comment"]) == ("x", "told")
    folder.tool("varval", "set", folder.path(), "NEW", "y")
    assert variables.record("NEW") == genreg.Variable("NEW", "y", "told")
    binary = genreg.BinVariables(folder.path("binary"))
    binary.set("x", -7, comment="seven")
    assert [each["value"] for each in folder.tool("binvar", "list", folder.path("binary"))] == [-7]
    folder.tool("binvar", "set", folder.path("binary"), "x", "8")
    assert binary.record("x") == genreg.BinVariable("x", 8, "seven")


@pytest.mark.parametrize("value", ["a\nb = 2", " x", "x ", "a#b", '"open', "a\0b", "a\tb", "x" * 2047, "a  b"])
def test_values_that_no_line_holds(folder, variables, value):
    for change in [
        lambda: variables.set("PORT", value),
        lambda: variables.set("NEW", value),
        lambda: variables.set("NEW = " + value, "1"),
        lambda: variables.set("PORT", "1", comment="a\nb = 2" if "\n" in value else "c" * 2047),
    ]:
        with pytest.raises(genreg.Invalid):
            change()
    with pytest.raises(TypeError):
        variables["PORT"] = 5
    assert folder.bytes() == FILE


def test_compare_and_set(folder, variables):
    variables.set("PORT", "1", if_value="50000")
    with pytest.raises(genreg.Conflict) as caught:
        variables.set("PORT", "2", if_value="50000")
    assert not isinstance(caught.value, genreg.Exists) and "another by now" in str(caught.value)
    with pytest.raises(genreg.Conflict):
        variables.set("GONE", "2", if_value="1")
    with pytest.raises(genreg.Exists):
        variables.set("PORT", "2", if_value=None)
    variables.set("NEW", "1", if_value=None)
    seen = variables.record("NEW")
    variables.set("NEW", "1", comment="by another")
    with pytest.raises(genreg.Conflict):
        variables.delete("NEW", if_record=seen)
    variables.replace(genreg.Variable("NEW", "3"), if_record=variables.record("NEW"))
    assert variables.record("NEW") == genreg.Variable("NEW", "3") and variables["PORT"] == "1"


def test_names_of_several_lines(folder, variables):
    for change in [lambda: variables.set("TWICE", "3"), lambda: variables.pop("TWICE")]:
        with pytest.raises(genreg.Several):
            change()
    assert folder.bytes() == FILE
    with pytest.raises(genreg.Exists):
        variables.add(genreg.Variable("PORT", "1"))
    variables.delete("TWICE", every=True)
    assert "TWICE" not in variables
    with pytest.raises(KeyError):
        del variables["TWICE"]


def test_typed_values(folder):
    variables = genreg.Variables(folder.write(b"i = -5\nu = 18446744073709551615\nb = YES\nf = 1.5\nq = \"5\"\n"))
    assert variables.get_int("i") == -5 and variables.get_unsigned("u") == 2**64 - 1
    assert variables.get_bool("b") is True and variables.get_float("f") == 1.5
    for refused in [
        lambda: variables.get_int("u"),
        lambda: variables.get_int("q"),
        lambda: variables.get_int("f"),
        lambda: variables.get_bool("i"),
        lambda: variables.get_float("b", 0.0),
    ]:
        with pytest.raises(genreg.Invalid):
            refused()
    with pytest.raises(genreg.NotFound):
        variables.get_int("none")
    assert variables.get_int("none", None) is None
    with variables.batch() as batch:
        batch["i"] = "6"
        assert batch.get_int("i") == 6 and variables.get_int("i") == -5


def test_binary_variables(folder):
    binary = genreg.BinVariables(folder.path())
    binary["a"], binary["b"] = 2**31 - 1, -(2**31)
    binary.set("a", 1, comment="x" * 15)
    binary.set("a", 1, comment="only this")
    assert binary.entries() == [genreg.BinVariable("a", 1, "only this"), genreg.BinVariable("b", -(2**31))]
    binary.set("c\udcff", 3, if_value=None)
    assert b"c\xff\0" in folder.bytes() and list(binary) == ["a", "b", "c\udcff"]
    for refused in [
        lambda: binary.set("a", 2**31),
        lambda: binary.set("x" * 16, 1),
        lambda: binary.set("a", 1, comment="x" * 16),
        lambda: binary.set("a", 1, comment="\0"),
    ]:
        with pytest.raises(genreg.Invalid):
            refused()
    del binary["b"]
    assert dict(binary) == {"a": 1, "c\udcff": 3}


def test_kept_contents_are_never_older_than_the_file(folder, variables):
    kept = genreg.Variables(folder.path(), keep=1 << 20)
    for turn in range(50):
        variables["PORT"] = str(turn)
        assert kept["PORT"] == str(turn)
    folder.write(b"PORT = written\n")
    assert kept["PORT"] == "written"
