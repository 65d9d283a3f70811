"""Every vqgas command in the documentation runs, and fails with the printed line where one is printed.

Pictures, samples and counts are made small. A command that takes longer than a few seconds is interrupted, which it must
say: its arguments were accepted. Commands of other programs are checked for what they name: scripts, presets, options.

    check_commands.py SOURCE_ROOT BINARY_FOLDER
"""
import json
import os
import pathlib
import re
import shlex
import signal
import struct
import subprocess
import sys
import tempfile

SECONDS = 4
SMALL = {"--size": "64x36", "--samples": "1", "--count": "500", "--strands": "500"}
PROGRAMS = ("vqgas ", "printf ", "scripts/", "cmake ", "ctest ", "build/", "cmp ")


def find_commands(text):
    """(line number, command, printed lines) of each command in a block that is indented or fenced as sh."""
    lines, number, fenced = text.splitlines(), 0, False
    while number < len(lines):
        line = lines[number]
        number += 1
        if line.startswith("```"):
            fenced = not fenced and line.strip() == "```sh"
            continue
        if not (fenced or line.startswith("    ")):
            continue
        command = line.strip().removeprefix("$ ")
        if not command.startswith(PROGRAMS):
            continue
        start = number
        while command.endswith("\\"):
            command = command[:-1] + lines[number].strip()
            number += 1
        printed = []
        while number < len(lines) and lines[number].startswith("    ") and not lines[number].startswith("    $"):
            printed.append(lines[number][4:])
            number += 1
        if not line.strip().startswith("$ "):  # a list of commands prints nothing
            number -= len(printed)
            printed = []
        yield start, command, printed


def write_robot(path):
    """A triangle that moves along x in half a second."""
    floats = [0, 0, 0, 1, 0, 0, 0, 1, 0] + [0.0, 0.5] + [0, 0, 0, 2, 0, 0]
    data = struct.pack(f"<{len(floats)}f", *floats)
    views = [(0, 36), (36, 8), (44, 24)]
    scene = {
        "asset": {"version": "2.0"},
        "scene": 0,
        "scenes": [{"nodes": [0]}],
        "nodes": [{"mesh": 0, "name": "arm"}],
        "meshes": [{"primitives": [{"attributes": {"POSITION": 0}}]}],
        "animations": [
            {
                "channels": [{"sampler": 0, "target": {"node": 0, "path": "translation"}}],
                "samplers": [{"input": 1, "output": 2}],
            }
        ],
        "buffers": [{"byteLength": len(data)}],
        "bufferViews": [{"buffer": 0, "byteOffset": at, "byteLength": size} for at, size in views],
        "accessors": [
            {"bufferView": 0, "componentType": 5126, "count": 3, "type": "VEC3", "min": [0, 0, 0], "max": [1, 1, 0]},
            {"bufferView": 1, "componentType": 5126, "count": 2, "type": "SCALAR", "min": [0.0], "max": [0.5]},
            {"bufferView": 2, "componentType": 5126, "count": 2, "type": "VEC3"},
        ],
    }
    text = json.dumps(scene).encode()
    text += b" " * (-len(text) % 4)
    chunks = struct.pack("<II", len(text), 0x4E4F534A) + text + struct.pack("<II", len(data), 0x004E4942) + data
    path.write_bytes(struct.pack("<III", 0x46546C67, 2, 12 + len(chunks)) + chunks)


def stage_files(folder):
    """The files that the documentation takes for granted."""
    square = "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\n"
    maps = "vt 0.1 0.1\nvt 0.9 0.1\nvt 0.9 0.9\nvt 0.1 0.9\n"
    (folder / "square.obj").write_text(square + "f 1 2 3 4\n")
    for name in ("bunny.obj", "spot.obj", "ground.obj", "vessel.obj"):
        (folder / name).write_text(square + maps + "f 1/1 2/2 3/3 4/4\n")
    for name in ("bunny.ply", "dragon.ply"):
        (folder / name).write_text(
            "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\nproperty float z\n"
            "element face 1\nproperty list uchar int vertex_indices\nend_header\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n"
        )
    (folder / "cloud.xyz").write_text("0 0 0\n1 0 0\n0 1 0\n")
    (folder / "rays.csv").write_text("0,5,0,0,-1,0\n")
    write_robot(folder / "robot.glb")
    broken = {
        "format": "vqgas scatter 1",
        "geometries": ["square.obj", "bunny.obj"],
        "instances": {"geometry": [0, 7], "matrix": 2 * [1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0]},
    }
    (folder / "broken.json").write_text(json.dumps(broken))


def make_small(command):
    words = shlex.split(command, comments=True)
    for option, value in SMALL.items():
        for place, word in enumerate(words[:-1]):
            if word == option:
                one_number = words[place + 1].isdigit()
                words[place + 1] = "64" if option == "--size" and one_number else value
            if word == "--rect":
                words[place + 1] = "5,5,40,30"
    quote = lambda word: word if re.fullmatch(r"2?[|;<>&]+", word) else shlex.quote(word)
    return " ".join(quote(word) for word in words)


def split_shell(command):
    """Blanks around what the shell reads as operators."""
    return re.sub(r"(?<!\S)(2?[<>])(?=\S)", r"\1 ", command.replace(";", " ; "))


def run(command, folder, binaries):
    environment = dict(os.environ, PATH=f"{binaries}:{os.environ['PATH']}")
    process = subprocess.Popen(
        ["bash", "-c", "set -o pipefail; " + command],
        cwd=folder, env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
        start_new_session=True,
    )
    try:
        output, errors = process.communicate(timeout=SECONDS)
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGINT)
        output, errors = process.communicate(timeout=60)
        return 0 if process.returncode in (130, -signal.SIGINT) else process.returncode, output, errors
    return process.returncode, output, errors


def check_vqgas(command, printed, folder, binaries):
    """Empty, or what is wrong."""
    status, output, errors = run(make_small(split_shell(command)), folder, binaries)
    expected = [line for line in printed if line.startswith("vqgas: ")]
    if not expected:
        return "" if status == 0 else f"ended with {status}: {errors.strip() or output.strip()}"
    if status not in (1, 2):
        return f"ended with {status} instead of an error"
    return "" if expected[0] in errors.splitlines() else f"printed {errors.strip()!r} instead of {expected[0]!r}"


def check_other(command, root, binaries):
    words = shlex.split(command, comments=True)
    program = words[0]
    if program.startswith("scripts/"):
        return "" if os.access(root / program, os.X_OK) else "is no program"
    if "--preset" in words:
        presets = (root / "CMakePresets.json").read_text()
        names = [words[k + 1] for k, word in enumerate(words[:-1]) if word == "--preset"]
        return "".join(f"there is no preset {name}. " for name in names if f'"{name}"' not in presets)
    if "/bin/bench_" in program:
        path = binaries / pathlib.Path(program).name
        if not path.exists():
            return ""  # benchmarks are not built everywhere
        text = subprocess.run([path, "--help"], capture_output=True, text=True, timeout=60).stdout
        return "".join(f"has no option {word}. " for word in words if word.startswith("--") and word not in text)
    return ""


def main(root, binaries):
    root, binaries = pathlib.Path(root).resolve(), pathlib.Path(binaries).resolve()
    faults, seen, count = [], set(), 0
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        stage_files(folder)
        status, _, errors = run("vqgas groom demo:knot -o fur.hair --strands 300 --quiet", folder, binaries)
        assert status == 0, errors
        for page in [root / "README.md", *sorted((root / "docs").glob("*.md"))]:
            for number, command, printed in find_commands(page.read_text()):
                count += 1
                if command in seen:
                    continue
                seen.add(command)
                if "vqgas " in command and not command.startswith("scripts/"):
                    fault = check_vqgas(command, printed, folder, binaries)
                else:
                    fault = check_other(command, root, binaries)
                if fault:
                    faults.append(f"{page.name}:{number}: {command}\n    {fault}")
    print("\n".join(faults) or f"{count} commands run")
    return 1 if faults or count == 0 else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], sys.argv[2]))
