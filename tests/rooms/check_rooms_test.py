"""Breaks each rule of check-rooms in a small temporary tree."""

import importlib.machinery
import importlib.util
import os
import subprocess
import sys
import tempfile
import unittest

TREE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
CHECK_ROOMS = os.path.join(TREE, "scripts", "check-rooms")


def load():
    loader = importlib.machinery.SourceFileLoader("check_rooms", CHECK_ROOMS)
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader("check_rooms", loader))
    sys.dont_write_bytecode = True
    loader.exec_module(module)
    return module


check_rooms = load()

# A tree that keeps every rule, some only just.
GOOD = {
    "CMakeLists.txt": "add_subdirectory(sdk)\n",
    "sdk/CMakeLists.txt": "room(sdk)\n",
    "sdk/host.h": '#include <stddef.h>\n#include <stdint.h>\n#include "sdk/contract.h"\n',
    "sdk/contract.h": "// #include <windows.h>\n/* #include \"module/x.h\"\n#include <vector> */\n",
    "platform/CMakeLists.txt": "room(platform\n    SOURCES linux/text.cpp)\n",
    "platform/text.h": "#include <string>\n",
    "platform/linux/send_signal.h": "#include <signal.h>\ninline int Send(pid_t id) { return ::kill(id, SIGKILL); }\n"
    "inline int Through(int id) { return pidfd_send_signal(id, 9, nullptr, 0); }\n",
    "platform/linux/process.cpp": '#include "platform/linux/send_signal.h"\nvoid End(int id) { Send(id); raise(9); }\n'
    'const char* text = "kill(0, 9)"; // as kill(-1, 9) in a comment\nvoid Kill(int);\n'
    "void skill();\nvoid f() { Kill(0); skill(); }\n",
    "platform/linux/text.cpp": '#include <unistd.h>\n#include <sys/wait.h>\n#include "platform/text.h"\n',
    "engine/CMakeLists.txt": "# The adapter.\nroom(engine\n    MAY_INCLUDE platform # for text\n        sdk\n"
    "    SOURCES engine.cpp\n    LIBRARIES Boost::thread)\n",
    "engine/engine_records.h": "#include <cstdint>\n",
    "engine/engine.cpp": '#include <csignal>\n#include "engine/engine_records.h"\n#include "platform/text.h"\n'
    'const char* text = "_mm_add_epi8 in a text"; // and _mm_sub_epi8 in a comment\n',
    "image_transform/CMakeLists.txt": "room(image_transform)\n",
    "image_transform/kernels/sse.cpp": "#include <immintrin.h>\n__m128i a() { return _mm_setzero_si128(); }\n",
    "module/CMakeLists.txt": "room(module MAY_INCLUDE engine)\n",
    "module/module.h": '#include "engine/engine_records.h"\n',
    "tools/host/CMakeLists.txt": "room(tools/host MAY_INCLUDE sdk)\n",
    "tools/clip/CMakeLists.txt": "room(tools/clip\n    SOURCES light.cpp)\n",
    "reference/scripted_engine/CMakeLists.txt": "room(reference/scripted_engine\n"
    "    MAY_INCLUDE engine/engine_records.h platform)\n",
    "reference/transport/CMakeLists.txt": "room(reference/transport)\n",
    "reference/server/CMakeLists.txt": "room(reference/server MAY_INCLUDE reference/transport)\n",
    "reference/server/main.cpp": '#include "reference/transport/messages.h"\n',
    "tests/CMakeLists.txt": "room(tests MAY_INCLUDE ANY)\n",
    "fuzz/CMakeLists.txt": "room(fuzz MAY_INCLUDE ANY)\n",
    "bench/CMakeLists.txt": "room(bench MAY_INCLUDE ANY)\n",
    "tools/host/main.cpp": '#include "tools/host/play.h"\n#include "sdk/host.h"\n',
    "tools/host/linux_system.cpp": "#include <dlfcn.h>\n",
    "reference/scripted_engine/script.cpp": '#include "engine/engine_records.h"\n#include "platform/text.h"\n',
    "fuzz/messages_fuzzer.cpp": '#include "tools/host/play.h"\n#include "sdk/host.h"\n',
    "tests/module/module_test.cpp": '#include "module/module.h"\n#include "tests/support/host.h"\n',
    "tests/support/linux_guard.cpp": "#include <sys/mman.h>\n",
    "bench/conversion.cpp": '#include "engine/engine.h"\n#include "tools/host/play.h"\n#include "tests/support/host.h"\n',
    "bench/linux_memory.cpp": "#include <unistd.h>\n",
    "build/linux/generated.h": "#include <windows.h>\n",
    "docs/architecture.md": "# Rooms\n<!-- rooms -->\n```mermaid\ngraph TD\n    engine --> platform\n"
    "    engine --> sdk\n    module --> engine\n```\n<!-- /rooms -->\n<!-- rooms -->\n    tools_host --> sdk\n"
    "    reference_scripted_engine --> engine\n    reference_scripted_engine --> platform\n"
    "    reference_server --> reference_transport\n<!-- /rooms -->\n",
}


class CheckRooms(unittest.TestCase):
    def with_tree(self, changes, look):
        with tempfile.TemporaryDirectory() as root:
            for path, text in {**GOOD, **changes}.items():
                if text is None:
                    continue
                file = os.path.join(root, path)
                os.makedirs(os.path.dirname(file), exist_ok=True)
                with open(file, "w", encoding="utf-8") as stream:
                    stream.write(text)
            return look(root)

    def breaches(self, changes):
        return self.with_tree(changes, lambda root: check_rooms.Checker(root).check())

    def assert_one_breach(self, changes, *parts):
        breaches = self.breaches(changes)
        self.assertEqual(len(breaches), 1, breaches)
        for part in parts:
            self.assertIn(part, breaches[0])

    def test_a_valid_tree_passes(self):
        self.assertEqual(self.breaches({}), [])

    def test_the_program_prints_the_breach_and_fails(self):
        def run(root):
            return subprocess.run([sys.executable, CHECK_ROOMS, root], stdout=subprocess.PIPE, text=True)

        good = self.with_tree({}, run)
        self.assertEqual((good.returncode, len(good.stdout.splitlines())), (0, 1), good.stdout)
        bad = self.with_tree({"sdk/host.h": "#include <vector>\n", "platform/text.h": '#include "sdk/host.h"\n'}, run)
        self.assertEqual((bad.returncode, len(bad.stdout.splitlines())), (1, 2), bad.stdout)

    def test_an_unlisted_edge(self):
        self.assert_one_breach({"platform/text.h": '\n#include "sdk/host.h"\n'}, "platform/text.h:2:", "sdk")
        self.assert_one_breach({"engine/engine.cpp": '#  include "image_transform/kernels/kernel.h"\n'}, "engine")

    def test_a_neighbour_that_is_not_a_room(self):
        self.assert_one_breach({"sdk/host.h": '#include "common/util.h"\n'}, "common")
        self.assert_one_breach(
            {
                "image_transform/CMakeLists.txt": "room(image_transform MAY_INCLUDE common)\n",
                "docs/architecture.md": GOOD["docs/architecture.md"].replace(
                    "graph TD\n", "graph TD\n    image_transform --> common\n"
                ),
            },
            "common is not a room",
        )

    def test_a_room_under_another_name(self):
        self.assert_one_breach({"tools/clip/CMakeLists.txt": "room(clip)\n"}, "another name, clip")

    def test_a_folder_that_is_not_a_room(self):
        self.assert_one_breach({"common/util.h": '#include "sdk/host.h"\n'}, "is not in a room")

    def test_a_tree_without_rooms(self):
        without = {path: None for path in GOOD if path.endswith("CMakeLists.txt")}
        self.assertIn("CMakeLists.txt: no room is declared", self.breaches(without))

    def test_an_edge_missing_from_the_picture(self):
        self.assert_one_breach(
            {"docs/architecture.md": GOOD["docs/architecture.md"].replace("    engine --> sdk\n", "")},
            "engine --> sdk is declared but not shown",
        )

    def test_an_edge_extra_in_the_picture(self):
        self.assert_one_breach(
            {"docs/architecture.md": GOOD["docs/architecture.md"].replace("graph TD\n", "graph TD\n    sdk --> engine\n")},
            "sdk --> engine is shown but not declared",
        )

    def test_no_picture(self):
        self.assert_one_breach({"docs/architecture.md": "# Rooms\n"}, "no picture")
        self.assert_one_breach({"docs/architecture.md": None}, "no picture")

    def test_system_headers_outside_platform(self):
        for header in ("windows.h", "Windows.h", "tlhelp32.h", "unistd.h", "sys/stat.h", "fcntl.h", "signal.h",
                       "dlfcn.h", "pthread.h", "spawn.h", "poll.h", "dirent.h", "iconv.h", "langinfo.h", "pwd.h"):
            for path in ("engine/engine.cpp", "tools/host/system.cpp", "tests/support/guard.cpp"):
                with self.subTest(header=header, path=path):
                    self.assert_one_breach({path: f"#include <{header}>\n"}, path, header)

    def test_a_systems_file_name_permits_nothing_outside_its_rooms(self):
        self.assert_one_breach({"engine/linux_engine.cpp": "#include <unistd.h>\n"}, "unistd.h")

    def test_a_system_is_known_by_its_folder_in_platform(self):
        program = {"tools/host/freebsd_system.cpp": "#include <dlfcn.h>\n"}
        signalling = {"platform/freebsd/send_signal.h": "inline int Send(int id) { return ::kill(id, 9); }\n"}
        self.assert_one_breach(program, "tools/host/freebsd_system.cpp:1:", "dlfcn.h")
        self.assertEqual(self.breaches({**program, **signalling}), [])

    def test_intrinsics_outside_the_kernels(self):
        for header in ("immintrin.h", "emmintrin.h", "x86intrin.h", "arm_neon.h", "cpuid.h"):
            with self.subTest(header=header):
                self.assert_one_breach({"image_transform/convert.cpp": f"#include <{header}>\n"}, header)
                self.assert_one_breach({"tests/image_transform/t.cpp": f"#include <{header}>\n"}, header)
        for use in ("_mm256_add_epi8(a, b);", "__m512i a;", "__builtin_ia32_pause();"):
            with self.subTest(use=use):
                self.assert_one_breach({"engine/engine.cpp": f"void f() {{ {use} }}\n"}, "engine/engine.cpp:1:")

    def test_signals_past_the_one_function(self):
        for path in ("platform/linux/process.cpp", "tests/support/linux_guard.cpp", "tools/host/linux_system.cpp"):
            with self.subTest(path=path):
                self.assert_one_breach({path: "\nvoid f() { kill(0, 9); }\n"}, f"{path}:2: kill", "send_signal.h")
        for call in ("kill(id, SIGKILL);", "::kill (0, 9);", "killpg(id, 9);", "tgkill(a, b, 9);", "tkill(a, 9);",
                     "sigqueue(id, 9, v);", "pidfd_send_signal(d, 9, nullptr, 0);", "syscall(SYS_kill, 0, 9);",
                     "syscall(SYS_tgkill, 0, 0, 9);", "syscall(__NR_pidfd_send_signal, d, 9, 0, 0);",
                     "syscall(SYS_rt_sigqueueinfo, 0, 9, i);"):
            with self.subTest(call=call):
                self.assert_one_breach({"platform/linux/text.cpp": call}, "platform/linux/text.cpp:1:", "send_signal.h")

    def test_what_sdk_may_not_include(self):
        self.assert_one_breach({"sdk/host.h": "#include <cstdint>\n"}, "cstdint")
        self.assert_one_breach({"sdk/host.h": '#include "platform/text.h"\n'}, "platform")

    def test_module_and_tests_and_tools_from_outside(self):
        self.assert_one_breach({"engine/engine.cpp": '#include "module/module.h"\n'}, "module")
        self.assert_one_breach({"tools/host/main.cpp": '#include "module/module.h"\n'}, "module")
        self.assert_one_breach({"engine/engine.cpp": '#include "tests/support/host.h"\n'}, "tests")
        self.assert_one_breach({"tools/host/main.cpp": '#include "tests/support/host.h"\n'}, "tests")
        self.assert_one_breach({"fuzz/messages_fuzzer.cpp": '#include "bench/memory.h"\n'}, "bench")
        self.assert_one_breach({"engine/engine.cpp": '#include "tools/host/play.h"\n'}, "tools")
        self.assert_one_breach({"tests/module/module_test.cpp": '#include "bench/memory.h"\n'}, "bench")

    def test_what_tools_may_not_include(self):
        self.assert_one_breach({"tools/host/main.cpp": '#include "engine/engine_records.h"\n'}, "tools/host")
        self.assert_one_breach({"reference/scripted_engine/script.cpp": '#include "engine/engine.h"\n'}, "scripted_engine")
        self.assert_one_breach({"reference/server/main.cpp": '#include "sdk/host.h"\n'}, "reference/server")
        self.assert_one_breach({"tools/clip/main.cpp": '#include "platform/text.h"\n'}, "tools/clip")
        self.assert_one_breach({"tools/clip/main.cpp": '#include "tools/host/play.h"\n'}, "tools/clip")
        self.assert_one_breach({"tools/other/main.cpp": '#include "sdk/host.h"\n'}, "is not in a room")

    def test_what_rooms_may_not_declare(self):
        def declared(room, neighbour):
            picture = GOOD["docs/architecture.md"] + f"<!-- rooms -->\n{room} --> {neighbour}\n<!-- /rooms -->\n"
            return {
                f"{room}/CMakeLists.txt": GOOD[f"{room}/CMakeLists.txt"].replace(")", f" MAY_INCLUDE {neighbour})", 1),
                "docs/architecture.md": picture.replace(f"{room} -->", room.replace("/", "_") + " -->"),
            }

        self.assert_one_breach(declared("sdk", "module"), "sdk may not declare module")
        self.assert_one_breach(declared("reference/transport", "module"), "may not declare module")
        self.assert_one_breach(declared("sdk", "tests"), "no other room may include tests")
        changes = declared("sdk", "tools/host")
        changes["docs/architecture.md"] = changes["docs/architecture.md"].replace("sdk --> tools/host", "sdk --> tools_host")
        self.assert_one_breach(changes, "sdk may not declare tools/host")

    def test_an_include_that_is_not_written_from_the_root(self):
        self.assert_one_breach({"engine/engine.cpp": '#include "engine_records.h"\n'}, "from the root")
        self.assert_one_breach({"engine/engine.cpp": '#include "engine/../sdk/host.h"\n'}, "from the root")

    def test_includes_inside_a_project_of_its_own(self):
        project = {
            "tools/clip/CMakeLists.txt": "project(clip LANGUAGES CXX)\nroom(tools/clip)\n",
            "tools/clip/main.cpp": '#include "light.h"\n',
            "tools/clip/light.h": "",
        }
        self.assertEqual(self.breaches(project), [])
        self.assert_one_breach({**project, "tools/clip/main.cpp": '#include "engine_records.h"\n'}, "from the root")
        self.assert_one_breach({**project, "tools/clip/CMakeLists.txt": "room(tools/clip)\n"}, "from the root")


unittest.main()
