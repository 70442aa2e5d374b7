"""Breaks each rule of check-foreign-calls in a small temporary tree."""

import importlib.machinery
import importlib.util
import os
import sys
import tempfile
import unittest

TREE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
CHECK = os.path.join(TREE, "scripts", "check-foreign-calls")


def load():
    loader = importlib.machinery.SourceFileLoader("check_foreign_calls", CHECK)
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader("check_foreign_calls", loader))
    sys.dont_write_bytecode = True
    loader.exec_module(module)
    return module


check_foreign_calls = load()

# A tree that keeps every rule, some only just.
GOOD = {
    "sdk/contract.h": "/// The root.\n#define SLOT(I) virtual ~I() {}\nstruct IContract {\n"
    "    OVERLOADS(virtual void* Query(const char*) = 0,\n        virtual void* Query(const char*) const = 0);\n};\n",
    "sdk/buffer.h": "/// Buffers.\n/// Host side.\nstruct IBuffer : IContract {\n    virtual uint8_t* GetData() = 0;\n"
    "    virtual void Take(int32_t first,\n                      int32_t second) = 0;\n};\n",
    "sdk/detector.h": "/// Library side.\nstruct IDetector {\n    virtual void Receive(IBuffer* buffer) = 0;\n};\n",
    "sdk/names.h": "/// Names.\n",
    "engine/engine_records.h": "struct Image;\nint Recognise(Image* image,\n              int flags);\n"
    "bool SetRange(int width);\ninline int Own(int x) { return x; }\n",
    "engine/engine.cpp": "void f(IBuffer* b) {\n    CallForeign<&IBuffer::GetData>(b);  // not b->GetData()\n"
    '    CallForeign<&::SetRange>(1); CallForeign<&Recognise>(i, 0); trace("b->GetData()"); b->Receive(b); Own(1);\n}\n'
    "void* D::Query(const char* name) const { return const_cast<D*>(this)->Query(name); }\n"
    "int MyRecognise(int n); int g() { return MyRecognise(1) + my.GetDataSize(); }\n",
    "tools/host/main.cpp": "void f(IBuffer* b) { b->GetData(); }\n",
}


class CheckForeignCalls(unittest.TestCase):
    def breaches(self, changes):
        with tempfile.TemporaryDirectory() as root:
            for path, text in {**GOOD, **changes}.items():
                file = os.path.join(root, path)
                os.makedirs(os.path.dirname(file), exist_ok=True)
                with open(file, "w", encoding="utf-8") as stream:
                    stream.write(text)
            return check_foreign_calls.Checker(root).check()

    def assert_one_breach(self, changes, *parts):
        breaches = self.breaches(changes)
        self.assertEqual(len(breaches), 1, breaches)
        for part in parts:
            self.assertIn(part, breaches[0])

    def test_a_valid_tree_passes(self):
        self.assertEqual(self.breaches({}), [])

    def test_an_operation_that_is_called_directly(self):
        for call in ("b->GetData();", "b.GetData();", "(*b).Take(1, 2);", "b\n->\nTake (1, 2);", "b->Query(n);",
                     "static_cast<I*>(b)->GetData();", "that->Query(n);"):
            for path in ("engine/other.cpp", "detector/half.h", "server/deep/er/file.cpp"):
                with self.subTest(call=call, path=path):
                    self.assert_one_breach({path: f"\nvoid f() {{ {call} }}\n"}, f"{path}:", "without CallForeign")

    def test_the_position_is_reported(self):
        self.assert_one_breach({"module/m.cpp": "/* two\nlines */\nint a = b->GetData();\n"}, "module/m.cpp:3: GetData ")

    def test_a_function_of_the_engine_that_is_called_directly(self):
        for call in ("Recognise(i, 0);", "::Recognise(i, 0);", "if (!::SetRange(1)) {}"):
            with self.subTest(call=call):
                self.assert_one_breach({"engine/other.cpp": f"void f() {{ {call} }}\n"}, "engine/other.cpp:1:")

    def test_a_header_without_a_side(self):
        header = GOOD["sdk/buffer.h"].replace("Host side", "Something")
        self.assertIn('sdk/buffer.h: the header\'s comment says neither "Host side"',
                      "\n".join(self.breaches({"sdk/buffer.h": header})))

    def test_a_tree_without_operations_or_functions(self):
        self.assert_one_breach({"engine/engine_records.h": "struct Image;\n"}, "no functions of the engine")
        without = {"sdk/contract.h": "", "sdk/buffer.h": ""}
        self.assert_one_breach(without, "no operations of the host")


unittest.main()
