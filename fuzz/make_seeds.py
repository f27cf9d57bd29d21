#!/usr/bin/python3
"""Writes the seed corpora of the from_json, unzip, signature and processor fuzz targets.

Deterministic: running it again gives the same files. The processor seeds are binary-protocol
calls of every method, encoded here by hand so that no generated code is needed; their paths
point at the fixtures fuzz_processor lays out in the sandbox's scratch directory.
"""
import io
import os
import struct
import zipfile

HERE = os.path.dirname(os.path.abspath(__file__))
CORPUS = os.path.join(HERE, "corpus")
with open(os.path.join(HERE, "scratch.path")) as scratch_file:
    SCRATCH = scratch_file.read().strip()


def write(target, name, data):
    folder = os.path.join(CORPUS, target)
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, name), "wb") as handle:
        handle.write(data)


def read_data(name):
    with open(os.path.join(HERE, "data", name), "rb") as handle:
        return handle.read()


# from_json: the first byte picks the model (0 update, 1 copy, 2 delete).
def from_json_seeds():
    seeds = {
        "update": b'\x00{"srcZip":"/a/p.zip","portalDir":"web","signFile":"/a/p.sig"}',
        "update-types": b'\x00{"srcZip":5,"portalDir":true,"signFile":null,"x":[1]}',
        "copy": b'\x01{"srcDir":"/tmp/src","portalDir":"../x"}',
        "copy-nested": b'\x01{"srcDir":{"srcDir":"a"},"portalDir":[["b"]]}',
        "delete": b'\x02{"portalDirs":["a","",".."]}',
        "delete-mixed": b'\x02{"portalDirs":["a",1,null,["x"],{"k":1},2.5,-3000000000]}',
        "delete-null": b'\x02{"portalDirs":null}',
        "array-root": b"\x02[1,2]",
        "not-json": b"\x00{",
        "nul-inside": b'\x01{"srcDir":"a\\u0000b"}\x00trailing',
    }
    for name, data in seeds.items():
        write("from_json", name, data)


def zip_bytes(entries, comment=b""):
    buffer = io.BytesIO()
    with zipfile.ZipFile(buffer, "w") as archive:
        for name, data, method in entries:
            info = zipfile.ZipInfo(name, date_time=(2020, 1, 1, 0, 0, 0))
            info.compress_type = method
            archive.writestr(info, data)
        archive.comment = comment
    return buffer.getvalue()


def unzip_seeds():
    package = read_data("package.zip")
    write("unzip", "package", package)
    write("unzip", "dot-dot", zip_bytes([("../up.txt", b"up", zipfile.ZIP_STORED),
                                         ("a/../../b/c.css", b"c", zipfile.ZIP_DEFLATED)]))
    write("unzip", "dirs-only", zip_bytes([("a/", b"", zipfile.ZIP_STORED),
                                           ("b\\", b"", zipfile.ZIP_STORED)]))
    write("unzip", "long-name", zip_bytes([("d" * 300 + "/f.txt", b"long", zipfile.ZIP_STORED)]))
    write("unzip", "empty-archive", zip_bytes([]))
    write("unzip", "truncated", package[: len(package) // 2])
    corrupt = bytearray(package)
    corrupt[40] ^= 0xFF  # inside the first entry's compressed data
    write("unzip", "corrupt-data", bytes(corrupt))


def signature_seeds():
    valid = read_data("package.sig")
    write("signature", "valid", valid)
    write("signature", "valid-with-tail", valid + b"tail")
    write("signature", "short", valid[:100])
    write("signature", "empty", b"")
    flipped = bytearray(valid)
    flipped[0] ^= 1
    write("signature", "flipped", bytes(flipped))


# Thrift binary protocol, strict form.
T_STOP, T_BOOL, T_I64, T_STRING = 0, 2, 10, 11
CALL, ONEWAY = 1, 4


def tstring(text):
    data = text.encode() if isinstance(text, str) else text
    return struct.pack(">i", len(data)) + data


def message(name, fields=b"", kind=CALL, seqid=7):
    return (struct.pack(">I", 0x80010000 | kind) + tstring(name) + struct.pack(">i", seqid) +
            fields + bytes([T_STOP]))


def string_arg(text):
    return bytes([T_STRING]) + struct.pack(">h", 1) + tstring(text)


def processor_seeds():
    package = '{"srcZip":"%s/pkg.zip","portalDir":"%%s","signFile":"%s/pkg.sig"}' % (SCRATCH,
                                                                                       SCRATCH)
    seeds = {
        "ping": message("IsRpcStatusNormal"),
        "all-processes": message("getAllProcessData"),
        "process": message("getProcessData", bytes([T_I64]) + struct.pack(">hq", 1, 1)),
        "process-negative": message("getProcessData", bytes([T_I64]) + struct.pack(">hq", 1, -5)),
        "start-tool": message("StartDiagnosisTool"),
        "relaunch-tool": message("reLaunchTool"),
        "update": message("updatePortal", string_arg(package % "p")),
        "update-root": message("updatePortal", string_arg(package % "")),
        "update-bad-json": message("updatePortal", string_arg("{")),
        "copy": message("copyPortalDir",
                        string_arg('{"srcDir":"%s/src","portalDir":"c"}' % SCRATCH)),
        "copy-from-file": message("copyPortalDir",
                                  string_arg('{"srcDir":"%s/file.txt","portalDir":"c"}' % SCRATCH)),
        "delete": message("delPortalDir", string_arg('{"portalDirs":["p","c","missing"]}')),
        "delete-too-long": message("delPortalDir",
                                   string_arg('{"portalDirs":["%s"]}' % ("n" * 300))),
        "unknown-method": message("foo"),
        "oneway": message("IsRpcStatusNormal", kind=ONEWAY),
        "wrong-arg-type": message("updatePortal", bytes([T_BOOL]) + struct.pack(">h", 1) + b"\x01"),
    }
    for name, data in seeds.items():
        write("processor", name, data)


if __name__ == "__main__":
    from_json_seeds()
    unzip_seeds()
    signature_seeds()
    processor_seeds()
