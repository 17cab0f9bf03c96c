"""What the tests read: the MIB modules as smidump writes them, and the alarm definitions that ship."""

import functools
import os
import subprocess
import xml.etree.ElementTree as ElementTree

SOURCE_DIR = os.environ.get("TAMREL_SOURCE_DIR") or os.path.abspath(os.path.join(os.path.dirname(__file__), "../.."))

ROOT = "1.3.6.1.4.1.99871.2"
TOPOLOGY = ROOT + ".91.9.1"
ALARMS = ROOT + ".91.10.1.1"
CLEAR_ALARM = ROOT + ".91.10.1.2"
DESTINATIONS = ROOT + ".91.10.4.1"
FIXED_TRAP = ROOT + ".91.10.2.1.0.1"
FIXED_TRAP_VARIABLES = ROOT + ".91.10.3.1.1"
NAMED_TRAPS = ROOT + ".91.10.2.1.1"
AGENT_OBJECTS = "1.3.6.1.4.1.99871.3.1.1"
HEARTBEAT = "1.3.6.1.4.1.99871.3.1.0.1"
HEARTBEAT_VARIABLES = AGENT_OBJECTS + ".4"
NAMED_TRAP_VARIABLES = ROOT + ".251.20.1.3"


def path(*parts):
    return os.path.join(SOURCE_DIR, *parts)


def run(*command, **environment):
    """Exit code and everything printed."""
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          env=dict(os.environ, **environment))
    return done.returncode, done.stdout


@functools.lru_cache(None)
def base_mibs():
    code, output = run(path("scripts", "base-mibs"))
    if code != 0:
        raise RuntimeError(output)
    return output.strip()


@functools.lru_cache(None)
def module(name):
    """The module's <smi> element."""
    done = subprocess.run(["smidump", "-f", "xml", path("mibs", name)], check=True, stdout=subprocess.PIPE,
                          env=dict(os.environ, SMIPATH=path("mibs") + ":" + base_mibs()))
    return ElementTree.fromstring(done.stdout)


def syntax(element):
    """A type as text: its name, or base type and limits or labels."""
    named = element.find("syntax/type")
    if named is not None:
        return named.get("name")
    definition = element.find("syntax/typedef")
    parent = definition.find("parent")
    name = parent.get("name") if parent is not None else definition.get("basetype")
    details = ["%s..%s" % (limit.get("min"), limit.get("max")) for limit in definition.findall("range")]
    details += ["%s(%s)" % (label.get("name"), label.get("number")) for label in definition.findall("namednumber")]
    return name + (" " + " ".join(details) if details else "")


def alarms():
    """The <param> elements of the definition file that ships."""
    return ElementTree.parse(path("share", "conf", "alarm_definitions.xml")).findall("eventDefinition/param")


def enumerations():
    """{type name: {value: text}} of the enumeration file that ships."""
    types = ElementTree.parse(path("share", "conf", "alarm_enumerations.xml")).findall("param_enum/enum_type")
    return {one.get("name"): {member.get("value"): member.text for member in one.findall("enum_member")}
            for one in types}
