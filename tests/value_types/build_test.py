"""How the build chooses the value types: installed libraries or compat/. The installed ones are a stand-in (stand_in/)."""

import functools
import json
import os
import re
import shutil
import subprocess
import tempfile
import unittest

SOURCE_DIR = os.environ["TAMREL_SOURCE_DIR"]
HERE = os.path.dirname(os.path.abspath(__file__))
NOT_INSTALLED = ["-D%s=" % name for name in ("SNMPPP_INCLUDE_DIR", "AGENTPP_INCLUDE_DIR", "SNMPPP_LIBRARY",
                                             "AGENTPP_LIBRARY")]
REFUSAL = ("TAMREL_SNMPPP=SYSTEM: no usable SNMP++ and AGENT++ found (headers snmp_pp/vb.h and agent_pp/snmp_pp_ext.h, "
           "libraries snmp++ and agent++, built with their namespaces switched on)")

# The module, the own tests of the value types, and tests that link or load what uses them.
TARGETS = ["snmp_tamrel", "compat_test", "notify_test", "loaded_module_test"]
TESTS = TARGETS[1:]
WIDTHS = (64, 32)  # of SmiUINT32

# With TAMREL_VALUE_TYPES_ALL=1 everything is built, optimised, and all tests run: a whole build, and so by hand.
EVERYTHING = bool(os.environ.get("TAMREL_VALUE_TYPES_ALL"))
OPTIONS = ["-DCMAKE_BUILD_TYPE=RelWithDebInfo"] if EVERYTHING else [
    "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS=-O0 -g0", "-DTAMREL_BENCHMARKS=OFF"]

INCLUDE = re.compile(r'^\s*#\s*include\s*[<"]([^>"]*)[>"]', re.MULTILINE)


@functools.lru_cache(None)
def headers_of(path):
    """All that a source of ours includes, also through its headers, whatever the preprocessor leaves out."""
    with open(path, encoding="utf-8") as file:
        names = set(INCLUDE.findall(file.read()))
    for name in set(names):
        header = os.path.join(SOURCE_DIR, name)
        if not name.startswith("compat/") and os.path.isfile(header):
            names |= headers_of(header)
    return frozenset(names)


def meets_both(path):
    """Whether a source uses the values, and headers that include Net-SNMP's where the values are not used."""
    names = headers_of(path)
    return "agent_pp/snmp_pp_ext.h" in names and "host/snmp/oid_vector.h" in names


def run(*command, **more):
    return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False, **more)


class Choice(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="vrx-value-types-")
        os.chmod(cls.folder, 0o755)  # tests start the programs as other users, too
        cls.prefixes = {width: cls.stand_in(width) for width in WIDTHS}
        cls.prefix = cls.prefixes[64]

    @classmethod
    def stand_in(cls, width):
        """Where libraries are installed whose SmiUINT32 has that many bits."""
        prefix = os.path.join(cls.folder, "prefix%d" % width)
        made = os.path.join(cls.folder, "stand_in%d" % width)
        for command in (["cmake", "-S", os.path.join(HERE, "stand_in"), "-B", made, "-G", "Ninja",
                         "-DCMAKE_INSTALL_PREFIX=" + prefix, "-DSTAND_IN_WIDTH=%d" % width],
                        ["cmake", "--build", made], ["cmake", "--install", made]):
            done = run(*command)
            if done.returncode != 0:
                raise RuntimeError(done.stdout)
        return prefix

    @classmethod
    def tearDownClass(cls):
        shutil.rmtree(cls.folder)

    def configure(self, *options, folder="build"):
        self.build = os.path.join(self.folder, folder)
        self.addCleanup(shutil.rmtree, self.build, ignore_errors=True)
        done = run("cmake", "-S", SOURCE_DIR, "-B", self.build, "-G", "Ninja", *OPTIONS, *options)
        return done.returncode, " ".join(done.stdout.split())

    def includes_of(self, source):
        """The include options with which a source is compiled."""
        with open(os.path.join(self.build, "compile_commands.json"), encoding="utf-8") as file:
            command = next(entry["command"] for entry in json.load(file) if entry["file"].endswith(source))
        return re.findall(r"-(?:I|isystem) ?(\S+)", command)

    def test_system_without_the_libraries_is_refused_with_what_is_missing(self):
        code, output = self.configure("-DTAMREL_SNMPPP=SYSTEM", *NOT_INSTALLED)
        self.assertNotEqual(code, 0)
        self.assertIn(REFUSAL, output)

    def test_system_with_a_library_without_namespaces_is_refused(self):
        """A release that was configured so has the same types outside of any namespace."""
        include = os.path.join(self.folder, "flat")
        shutil.copytree(os.path.join(self.prefix, "include"), include)
        for directory, _, names in os.walk(include):
            for path in (os.path.join(directory, name) for name in names):
                with open(path, encoding="utf-8") as file:
                    text = file.read()
                with open(path, "w", encoding="utf-8") as file:
                    file.write(re.sub(r"\b(?:Snmp_pp|Agentpp)\b", "Flat", text))
        code, output = self.configure("-DTAMREL_SNMPPP=SYSTEM", "-DCMAKE_PREFIX_PATH=" + self.prefix,
                                      "-DSNMPPP_INCLUDE_DIR=" + include, "-DAGENTPP_INCLUDE_DIR=" + include)
        self.assertNotEqual(code, 0)
        self.assertIn(REFUSAL, output)

    def test_auto_without_the_libraries_takes_the_own_ones(self):
        code, output = self.configure("-DTAMREL_SNMPPP=AUTO", *NOT_INSTALLED)
        self.assertEqual(code, 0, output)
        self.assertIn("SNMP value types: COMPAT", output)
        self.assertIn(os.path.join(SOURCE_DIR, "compat"), self.includes_of("svc_module.cpp"))

    def test_auto_takes_libraries_that_are_there(self):
        code, output = self.configure("-DTAMREL_SNMPPP=AUTO", "-DCMAKE_PREFIX_PATH=" + self.prefix)
        self.assertEqual(code, 0, output)
        self.assertIn("SNMP value types: SYSTEM", output)

    def test_compat_takes_the_own_ones_though_libraries_are_there(self):
        code, output = self.configure("-DTAMREL_SNMPPP=COMPAT", "-DCMAKE_PREFIX_PATH=" + self.prefix)
        self.assertEqual(code, 0, output)
        self.assertIn("SNMP value types: COMPAT", output)

    def test_module_and_its_tests_build_and_pass_with_libraries(self):
        code, output = self.configure("-DTAMREL_SNMPPP=SYSTEM", "-DCMAKE_PREFIX_PATH=" + self.prefix)
        self.assertEqual(code, 0, output)
        self.assertIn("SNMP value types: SYSTEM", output)
        includes = self.includes_of("svc_module.cpp")
        self.assertIn(os.path.join(self.prefix, "include"), includes)
        self.assertNotIn(os.path.join(SOURCE_DIR, "compat"), includes)

        self.assert_embedders_are_told()
        targets = ["all"] if EVERYTHING else TARGETS + ["minimal-host"] + self.objects_of_both()
        done = run("cmake", "--build", self.build, "--target", *targets)
        self.assertEqual(done.returncode, 0, done.stdout)
        module = run("readelf", "-d", os.path.join(self.build, "lib", "libsnmp_tamrel.so")).stdout
        self.assertIn("[libsnmp++.so]", module)
        self.assertIn(os.path.join(self.prefix, "lib"), re.search(r"RUNPATH.*\[(.*)\]", module).group(1))
        if EVERYTHING:
            self.run_all_tests()
            return
        for test in TESTS:
            with self.subTest(test):
                done = run(os.path.join(self.build, "bin", test), "--gtest_brief=1")
                self.assertEqual(done.returncode, 0, done.stdout)
        example = run(os.path.join(self.build, "bin", "minimal-host"), os.path.join(self.build, "lib", "libsnmp_tamrel.so"),
                      env=dict(os.environ, VRX_ROOT=os.path.join(SOURCE_DIR, "share"), TZ="UTC0"))
        with open(os.path.join(SOURCE_DIR, "examples/minimal-host/transcript.txt"), encoding="utf-8") as file:
            self.assertEqual(example.stdout, file.read())

    def assert_embedders_are_told(self):
        """Where a host of others finds the libraries, and that their types are the ones."""
        environment = dict(os.environ, PKG_CONFIG_PATH=os.path.join(self.build, "packaging/development"))
        flags = run("pkg-config", "--cflags", "--libs", "vrx", env=environment).stdout.split()
        library = os.path.join(self.prefix, "lib")
        for flag in ("-I" + os.path.join(self.prefix, "include"), os.path.join(library, "libsnmp++.so"),
                     os.path.join(library, "libagent++.so"), "-Wl,-rpath," + library):
            self.assertIn(flag, flags)
        self.assertEqual(run("pkg-config", "--variable=value_types", "vrx", env=environment).stdout, "SYSTEM\n")

    def test_a_library_of_another_width_builds_too(self):
        code, output = self.configure("-DTAMREL_SNMPPP=SYSTEM", "-DCMAKE_PREFIX_PATH=" + self.prefixes[32])
        self.assertEqual(code, 0, output)
        targets = ["all"] if EVERYTHING else ["snmp_tamrel"] + self.objects_of_both()
        done = run("cmake", "--build", self.build, "--target", *targets)
        self.assertEqual(done.returncode, 0, done.stdout)
        if EVERYTHING:
            self.run_all_tests()

    def objects_of_both(self):
        """Objects of the host and its tests that use the values, beside headers that are Net-SNMP's for others."""
        with open(os.path.join(self.build, "compile_commands.json"), encoding="utf-8") as file:
            entries = json.load(file)
        objects = [re.search(r" -o (\S+)", entry["command"]).group(1) for entry in entries
                   if os.path.isfile(entry["file"]) and meets_both(entry["file"])]
        for name in ("object_reader", "notification_pipeline", "vbx_conversion", "notification_pipeline_test"):
            self.assertTrue([path for path in objects if path.endswith("/%s.cpp.o" % name)], name)
        return objects

    def run_all_tests(self):
        done = run("ctest", "--test-dir", self.build, "--exclude-regex", "^(value_types|style)", "--output-on-failure")
        self.assertEqual(done.returncode, 0, done.stdout)


if __name__ == "__main__":
    unittest.main()
