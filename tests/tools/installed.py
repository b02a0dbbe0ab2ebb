#!/usr/bin/env python3
"""What `cmake --install` leaves serves a stranger: the examples build outside the source tree, with find_package and with
pkg-config, and run, wherever the installed tree is moved to; every operation can be called with the types of its callers;
the headers need nothing that isn't installed; the library exports what these declare and nothing else; the manual page
knows every command; all tell one version.

usage: installed.py CMAKE BUILD SOURCE COMPILER

Ends with 0, with 1 when a check fails, 77 without pkg-config."""
import glob
import os
import re
import shutil
import subprocess
import sys
import tempfile

import signatures

def run(*command, **options):
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **options)
    if done.returncode != 0:
        sys.exit(f"{' '.join(command)}: {done.returncode}\n{done.stdout}")
    return done.stdout

def declared(prefix):
    """The exported names of the headers."""
    names = set()
    for header in glob.glob(prefix + "/include/disk/*/*.h"):
        text = open(header).read()
        names.update(re.findall(r"^\s*(?:class|struct) (?:\[\[nodiscard\]\] )?DISK_EXPORT (\w+)", text, re.M))
        names.update(re.findall(r"^(?:\[\[nodiscard\]\] )?DISK_EXPORT (?:extern )?[\w:]+ [\w *]*?(\w+)[(;]", text, re.M))
        names.update(re.findall(r"^DICOM_\w+_CLASS\((\w+)", text, re.M))
    return names

def check_version(prefix, library, pc, source):
    """The soname and the CMake package go by the minor version; program, pkg-config and documents tell the whole."""
    version = run(prefix + "/bin/fileset", "--version").split()[1]
    minor = version.rsplit(".", 1)[0]
    texts = {pc: f"Version: {version}\n", source + "/docs/fileset.1": f'"fileset {version}"',
             source + "/docs/Doxyfile": f"= {version}\n", source + "/CHANGELOG.md": f"\n## {version} - ",
             source + "/examples/CMakeLists.txt": f"find_package(Disk {minor} REQUIRED)"}
    wrong = [path for path, text in texts.items() if text not in open(path).read()]
    if wrong or f"[libDisk.so.{minor}]" not in run("readelf", "-dW", library):
        sys.exit(f"fileset is {version}; another version is told by {wrong or 'the soname'}")

def check_symbols(prefix, library):
    known = declared(prefix)
    exported = [line.split(maxsplit=2)[2] for line in run("nm", "-DC", "--defined-only", library).splitlines()]
    strange = [name for name in exported if not known & set(re.findall(r"[A-Za-z_]\w*", name.split("(")[0] or name))]
    if strange:
        sys.exit(f"exported, but declared by no header: {strange[:10]}")
    hidden = [name for name in exported if re.match(r"Disk_(Redo|Checker|CheckStandard|WriteGather)::", name)]
    if hidden:
        sys.exit(f"exported without need: {hidden}")
    print(f"{len(exported)} symbols exported of {len(known)} declared names")

def check_examples(folder, objects, work, environment):
    configuration = work + "/cache.yaml"
    with open(configuration, "w") as out:
        out.write("push: {max_repository_size_mb: 100, max_repository_hd_percentage: 100}\n")
    listed = run(folder + "/store_and_query", work + "/set_" + os.path.basename(folder), *objects, env=environment)
    if len(listed.split()) != 2:
        sys.exit(f"store_and_query lists {listed}")
    told = run(folder + "/cache", configuration, work + "/cache_" + os.path.basename(folder), *objects, env=environment)
    if f"{len(objects)} of {len(objects)} stored" not in told:
        sys.exit(f"cache tells {told}")

def main(cmake, build, source, compiler):
    if not shutil.which("pkg-config"):
        print("pkg-config is missing; skipped")
        return 77
    with tempfile.TemporaryDirectory() as work:
        prefix = work + "/moved"
        run(cmake, "--install", build, "--prefix", work + "/prefix")
        os.rename(work + "/prefix", prefix)
        library, pc = (glob.glob(f"{prefix}/lib/**/{name}", recursive=True)[0] for name in ("libDisk.so", "disk.pc"))
        check_version(prefix, library, pc, source)
        check_symbols(prefix, library)
        run(build + "/bin/phantom", work + "/objects", "--patients", "2", "--studies", "1", "--series", "4",
            "--images", "2", "--kind", "mix", "--size", "16", "--charset", "utf8")
        objects = [os.path.join(where, name) for where, _, names in os.walk(work + "/objects") for name in names]

        shutil.copytree(source + "/examples", work + "/examples")
        for folder in ("set_cmake", "cache_cmake", "set_pkg", "cache_pkg"):
            os.mkdir(work + "/" + folder)
        run(cmake, "-S", work + "/examples", "-B", work + "/cmake", "-DCMAKE_PREFIX_PATH=" + prefix,
            "-DCMAKE_CXX_COMPILER=" + compiler)
        run(cmake, "--build", work + "/cmake")
        check_examples(work + "/cmake", objects, work, None)

        environment = dict(os.environ, PKG_CONFIG_PATH=os.path.dirname(pc))
        flags = run("pkg-config", "--cflags", "--libs", "disk", env=environment).split()
        libdir = run("pkg-config", "--variable=libdir", "disk", env=environment).strip()
        os.mkdir(work + "/pkg")
        with open(work + "/examples/signatures.cpp", "w") as out:
            out.write(signatures.source(sorted(glob.glob("*/*.h", root_dir=prefix + "/include/disk"))))
        for example in ("store_and_query", "cache", "signatures"):
            run(compiler, "-std=c++20", "-Wall", "-Wextra", "-Wpedantic", "-Werror", f"{work}/examples/{example}.cpp", "-o",
                f"{work}/pkg/{example}", *flags)
        check_examples(work + "/pkg", objects, work, dict(os.environ, LD_LIBRARY_PATH=libdir))
        run(work + "/pkg/signatures", env=dict(os.environ, LD_LIBRARY_PATH=libdir))

        page = open(prefix + "/share/man/man1/fileset.1").read()
        for command in re.findall(r"^  (\S+)  ", run(prefix + "/bin/fileset", "--help").split("Subcommands:")[1], re.M):
            if f".B {command}\n" not in page:
                sys.exit(f"the manual page doesn't know the command {command}")
    print("the examples build and run against the installed package, with find_package and with pkg-config")
    return 0

if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
