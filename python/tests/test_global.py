"""The global registry."""

import struct

import pytest

import genreg

INSTANCE = genreg.Instance("RVN", "9.7.0.2", "inst1", "/home/inst1", start_at_boot=True)


@pytest.fixture
def registry(folder):
    return genreg.GlobalRegistry(folder.path())


def test_records_by_their_keys(registry):
    registry.instances[("RVN", "9.7.0.2", "inst1")] = INSTANCE
    registry.services["RVN", "9.7.0.2"] = genreg.InstalledService("RVN", "9.7.0.2", "/opt", flag="\udcff", number3=-1)
    registry.variables["RVN", "V"] = genreg.GlobalVariable("RVN", "V", "1")
    assert registry.instances["RVN", "9.7.0.2", "inst1"] == INSTANCE
    service = registry.services["RVN", "9.7.0.2"]
    assert (service.flag, service.number3, service.number1, service.text) == ("\udcff", -1, None, None)
    assert list(registry.instances) == [("RVN", "9.7.0.2", "inst1")] and len(registry.variables) == 1
    assert [type(each) for each in registry.entries()] == [
        genreg.Instance,
        genreg.InstalledService,
        genreg.GlobalVariable,
    ]
    assert ("RVN", "9.7.0.3") not in registry.services
    with pytest.raises(KeyError):
        registry.instances["RVN", "9.7.0.2", "other"]
    with pytest.raises(TypeError):
        registry.instances["RVN"]
    del registry.variables["RVN", "V"]
    assert not registry.variables


def test_what_is_absent_is_told_from_what_is_empty(registry):
    key = ("RVN", "9.7", "inst1")
    registry.instances[key] = genreg.Instance(*key)
    registry.instances[key] = genreg.Instance(*key, start_at_boot=False)
    assert registry.instances[key].start_at_boot is False and registry.instances[key].maintenance is None
    seen = registry.instances[key]
    registry.instances[key] = genreg.Instance(*key)
    assert registry.instances[key].start_at_boot is None
    with pytest.raises(genreg.Conflict):
        registry.instances.replace(genreg.Instance(*key, comment="c"), if_record=seen)
    for refused in [{"path": ""}, {"usage": "x" * 64}, {"comment": "a\0b"}]:
        with pytest.raises(genreg.Invalid):
            registry.instances[key] = genreg.Instance(*key, **refused)
    for version in ["", "9.x", "1.2.3.4.5", "9..1", "65536", "0"]:
        with pytest.raises(genreg.Invalid):
            registry.instances.add(genreg.Instance("RVN", version, "inst1"))


def test_the_tool_reads_what_is_written_and_back(folder, registry):
    registry.instances.add(INSTANCE)
    (told,) = folder.tool("instance", "list", "--registry", folder.path())
    assert told["instanceName"] == "inst1" and told["startAtBoot"] == 1
    folder.tool("variable", "set", "--registry", folder.path(), "RVN", "V", "value=1", "variableText=told")
    assert registry.variables["RVN", "V"] == genreg.GlobalVariable("RVN", "V", "1", "told")
    registry.variables["RVN", "V"] = genreg.GlobalVariable("RVN", "V", "2", "other")
    with pytest.raises(genreg.Exists):
        registry.variables.add(genreg.GlobalVariable("RVN", "V", "3"))
    assert [each.value for each in registry.variables.entries()] == ["2"]


def image(mask, *items):
    body = struct.pack("<IQQ", 1, mask, 0) + b"".join(struct.pack("<H", len(item)) + item for item in items) + bytes(4)
    return struct.pack("=I", len(body)) + body


def test_items_of_later_releases_survive(folder):
    items = [b"RVN\0", struct.pack("<Q", 0x0009000700000002), b"inst1\0", b"\x01\x02later"]
    registry = genreg.GlobalRegistry(folder.write(image(0x100000000007, *items)))
    key = ("RVN", "9.7.0.2", "inst1")
    registry.instances[key] = genreg.Instance(*key, maintenance=True)
    registry.instances[key] = genreg.Instance(*key, comment="c")
    with registry.batch() as batch:
        batch.instances.replace(genreg.Instance(*key, path="/p"), if_record=genreg.Instance(*key, comment="c"))
        batch.instances.add(INSTANCE.__class__("RVN", "9.8", "inst2"))
    assert folder.bytes().count(b"\x07\x00\x01\x02later") == 1
    assert [instance.name for instance in registry.instances.entries()] == ["inst1", "inst2"]
    assert folder.tool("instance", "list", "--registry", folder.path())[0]["unknown"][0]["bit"] == "0x100000000000"


def test_a_batch_is_one_commit_of_all_types(registry, folder):
    with registry.batch() as batch:
        batch.services.add(genreg.InstalledService("RVN", "9.7.0.2", "/opt"))
        for number in range(5):
            batch.instances.add(genreg.Instance("RVN", "9.7.0.2", f"inst{number}"))
        batch.variables.add(genreg.GlobalVariable("RVN", "V", "1", "text"))
        assert batch.variables["RVN", "V"].text == "text" and folder.names() == [".registry.lock"]
        with pytest.raises(TypeError):
            batch._list()
    assert len(registry.instances) == 5
    before = folder.bytes()
    with pytest.raises(ZeroDivisionError):
        with registry.batch() as batch:
            del batch.services["RVN", "9.7.0.2"]
            batch.variables["RVN", "V"] = genreg.GlobalVariable("RVN", "V", "2", "text")
            1 / 0
    assert folder.bytes() == before


def test_the_path_of_the_machine(folder, monkeypatch):
    monkeypatch.setenv("RVN_GLOBAL_REG_PATHNAME", folder.path("own"))
    assert genreg.GlobalRegistry().path == folder.path("own")


def test_files_with_a_checksum_header(folder, registry):
    frames = image(0x7, b"RVN\0", struct.pack("<Q", 0x0009000700000002), b"inst1\0")
    words = frames[: len(frames) // 4 * 4]
    checksum = 0
    for (word,) in struct.iter_unpack("<I", words):
        checksum ^= word
    for byte in struct.unpack(f"{len(frames) - len(words)}b", frames[len(words) :]):
        checksum ^= byte & 0xFFFFFFFF
    stated = str(struct.unpack("<i", struct.pack("<I", checksum))[0]).encode()
    stamped = genreg.GlobalRegistry(folder.write(stated.ljust(32, b"\0") + frames, "stamped"))
    stamped.instances.add(genreg.Instance("RVN", "9.8", "inst2"))
    assert [instance.name for instance in stamped.instances.entries()] == ["inst1", "inst2"]
    with pytest.raises(genreg.Damaged):
        genreg.GlobalRegistry(folder.write(stated.ljust(32, b"\0") + frames[:-1] + b"x", "stamped")).entries()
