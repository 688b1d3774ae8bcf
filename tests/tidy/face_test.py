"""A machine's header that the installed headers of component host reach is found, over other headers too."""

import unittest

import face

FACES = "set(host_face_host Router\n  View)\nset(host_face_pim Port)\nset(host_face_wire Wire)\n"

MACHINES_OWN = "component host reaches crp/GateSm.h, a header of the machines"


class FaceTest(unittest.TestCase):
    def found(self, **texts):
        named = {path.replace("_", "/", 1) + ".h": text for path, text in texts.items()}
        return list(face.check({"cmake/Face.cmake": FACES, **named}))

    def test_a_header_of_a_machine_is_found_where_it_is_included(self):
        for machine in ("protocol/RootSm.h", "crp/GateSm.h", "config/ConfigSm.h"):
            found = self.found(host_Router='#include "host/View.h"\n', host_View=f'\n#include "{machine}"\n')
            self.assertEqual([("host/View.h", 2, MACHINES_OWN.replace("crp/GateSm.h", machine))], found)

    def test_one_that_is_reached_over_a_module_without_a_face_is_found(self):
        self.assertEqual([("model/A.h", 1, MACHINES_OWN)],
                         self.found(pim_Port='#include "model/A.h"\n', model_A='#include "crp/GateSm.h"\n'))

    def test_a_declaration_reaches_what_its_header_includes(self):
        texts = {"cmake/Face.cmake": FACES, "host/View.zet": "use crp/GateSm\nlater protocol/RootSm\n"}
        self.assertEqual([("host/View.h", 1, MACHINES_OWN)], list(face.check(texts)))

    def test_a_header_that_is_not_installed_is_found(self):
        text = "component host reaches host/Inner.h, which cmake/Face.cmake doesn't name"
        self.assertEqual([("host/Router.h", 1, text)], self.found(host_Router='#include "host/Inner.h"\n'))

    def test_a_module_whose_headers_are_not_found_is_found(self):
        for module in face.PARTLY:
            self.assertEqual([("cmake/Face.cmake", 1, f"names no header of {module}/")],
                             list(face.check({f"{module}/A.h": "", "cmake/Face.cmake": ""})))

    def test_other_headers_may_include_machines(self):
        self.assertEqual([], self.found(host_Inner='#include "protocol/RootSm.h"\n',
                                        host_Router='#include "model/Status.h"\n#include "pim/Port.h"\n'))


if __name__ == "__main__":
    unittest.main()
