"""The rules of tree_rules.py find what they are there to find."""

import tempfile
import unittest
from pathlib import Path

import tree_rules


class TreeRules(unittest.TestCase):
    def setUp(self):
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        self.root = Path(holder.name)
        self.write(tree_rules.PROTOCOL, 'inline constexpr const char* k = "tcp://*:5580";\n')

    def write(self, name, text):
        path = self.root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")

    def layering(self, name, include):
        self.write(name, f"#include {include}\n")
        faults = list(tree_rules.layering_faults(self.root))
        (self.root / name).unlink()
        return faults

    def test_includes_against_the_direction_are_found(self):
        for name, include in [
            ("platform/records/A.hpp", '"platform/api/Logger.hpp"'),
            ("model/A.cpp", '"platform/api/PollFds.hpp"'),
            ("model/A.cpp", '"handler/WebNotifierHandler.hpp"'),
            ("platform/api/A.hpp", '"platform/bundled/NotificationSocket.hpp"'),
            ("publisher/A.cpp", '"model/DeviceStatus.hpp"'),
            ("handler/A.cpp", "<platform/bundled/RotatingFile.hpp>"),
            ("app/A.cpp", '"publisher/WebNotifierPublisher.hpp"'),
            ("app/A.cpp", '"tests/support/Consumer.hpp"'),
            ("tools/x/A.cpp", '"handler/WebNotifierHandler.hpp"'),
            ("tests/service/A.cpp", '"platform/bundled/RotatingFile.hpp"'),
            ("handler/A.cpp", '"Sibling.hpp"'),
            ("handler/A.cpp", '"../platform/bundled/RotatingFile.hpp"'),
            ("platform/extra/A.cpp", "<string>"),
            (tree_rules.PROTOCOL, '"model/DeviceStatus.hpp"'),
        ]:
            with self.subTest(name=name, include=include):
                self.assertEqual(len(self.layering(name, include)), 1)
                self.write(tree_rules.PROTOCOL, "")

    def test_includes_along_the_direction_pass(self):
        for name, include in [
            ("platform/records/A.hpp", '"platform/PlatformProtocol.hpp"'),
            ("model/A.cpp", '"platform/api/Logger.hpp"'),
            ("handler/A.cpp", "<zmq.hpp>"),
            ("handler/A.cpp", "<json/value.h>"),
            ("tests/platform/A.cpp", '"platform/bundled/RotatingFile.hpp"'),
        ]:
            with self.subTest(name=name, include=include):
                self.assertEqual(self.layering(name, include), [])

    def test_a_repeated_port_is_found_in_code_alone(self):
        self.write("tools/demo/demo", "nc -z 127.0.0.1 5580\n")
        self.write("tools/README.md", "port 5580\n")
        self.write("tests/A.cpp", "int port = 5580;\n")
        self.write("handler/A.cpp", "int other = 15580;\n")
        faults = list(tree_rules.endpoint_faults(self.root))
        self.assertEqual(len(faults), 1, faults)
        self.assertTrue(faults[0].startswith("tools/demo/demo:1:"))

    def test_a_header_without_endpoints_is_a_fault(self):
        self.write(tree_rules.PROTOCOL, "")
        self.assertEqual(len(list(tree_rules.endpoint_faults(self.root))), 1)

    def test_a_link_to_a_file_that_is_not_there_is_found(self):
        self.write("docs/here.md", "[a](gone.md) [b](here.md#place) [c](#place) [d](../README.md)\n")
        self.write("README.md", "[a](https://example.org/x) [b](docs/here.md) [c](docs/gone.md#a)\n")
        self.write("docs/more/other.md", "[a](gone.md)\n")
        self.assertEqual(list(tree_rules.link_faults(self.root)),
                         ["README.md:1: docs/gone.md is not there",
                          "docs/here.md:1: gone.md is not there"])


if __name__ == "__main__":
    unittest.main()
