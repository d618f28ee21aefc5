# SPDX-License-Identifier: BSD-3-Clause
"""Build backend of the package (PEP 517): a wheel is the package's files and three lists."""

import base64
import hashlib
import pathlib
import re
import zipfile

HERE = pathlib.Path(__file__).resolve().parent


def version():
    """That of the library's header, where alone it is written."""
    header = (HERE.parent / "include" / "velmora.h").read_text()
    return ".".join(re.findall(r"#define VELMORA_VERSION_(?:MAJOR|MINOR|PATCH) (\d+)", header))


def metadata():
    return f"""Metadata-Version: 2.1
Name: velmora
Version: {version()}
Summary: Direct and iterative solution of large sparse linear systems, for SciPy's matrices
License: BSD-3-Clause
Requires-Python: >=3.9
Requires-Dist: numpy>=1.20
Requires-Dist: scipy>=1.7
"""


def build_wheel(wheel_directory, config_settings=None, metadata_directory=None):
    """Writes the wheel, and returns its name."""
    info = f"velmora-{version()}.dist-info"
    files = {f"velmora/{path.name}": path.read_bytes() for path in sorted(HERE.glob("velmora/*"))
             if path.suffix in (".py", ".typed")}
    files[f"{info}/METADATA"] = metadata().encode()
    files[f"{info}/WHEEL"] = (b"Wheel-Version: 1.0\nGenerator: velmora\n"
                              b"Root-Is-Purelib: true\nTag: py3-none-any\n")
    record = []
    for name, content in files.items():
        digest = base64.urlsafe_b64encode(hashlib.sha256(content).digest()).rstrip(b"=").decode()
        record.append(f"{name},sha256={digest},{len(content)}\n")
    files[f"{info}/RECORD"] = ("".join(record) + f"{info}/RECORD,,\n").encode()
    wheel = f"velmora-{version()}-py3-none-any.whl"
    with zipfile.ZipFile(pathlib.Path(wheel_directory) / wheel, "w", zipfile.ZIP_DEFLATED) as out:
        for name, content in files.items():
            out.writestr(name, content)
    return wheel
