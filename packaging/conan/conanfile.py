"""Conan 2 recipe, built from this working copy: conan create packaging/conan"""

import pathlib
import re

from conan import ConanFile
from conan.tools.cmake import CMake, CMakeDeps, CMakeToolchain, cmake_layout
from conan.tools.files import copy, load


class SerialComm(ConanFile):
    name = "serialcomm"
    description = "I2C, SPI and serial ports from C++ on Linux"
    license = "MIT"
    package_type = "shared-library"
    settings = "os", "arch", "compiler", "build_type"
    options = {"tool": [True, False]}
    default_options = {"tool": False, "log4cplus/*:shared": True, "log4cplus/*:unicode": False}

    @property
    def _sources(self):
        return pathlib.Path(self.recipe_folder).parents[1]

    def set_version(self):
        self.version = re.search(r"VERSION (\d+\.\d+\.\d+)", load(self, self._sources / "CMakeLists.txt"))[1]

    def export_sources(self):
        for pattern in ("CMakeLists.txt", "LICENSE", "src/*", "packaging/*"):
            copy(self, pattern, self._sources, self.export_sources_folder)

    def requirements(self):
        self.requires("log4cplus/[>=2.0.8 <3]", transitive_headers=False)
        if self.options.tool:
            self.requires("cli11/[>=2.1 <3]")
            self.requires("nlohmann_json/[>=3.10 <4]")

    def layout(self):
        cmake_layout(self)

    def generate(self):
        CMakeDeps(self).generate()
        toolchain = CMakeToolchain(self)
        toolchain.cache_variables["SERIALCOMM_TOOL"] = bool(self.options.tool)
        toolchain.cache_variables["SERIALCOMM_WATCH"] = False
        toolchain.generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        CMake(self).install()
        copy(self, "LICENSE", self.source_folder, pathlib.Path(self.package_folder) / "licenses")

    def package_info(self):
        self.cpp_info.set_property("cmake_file_name", "serialComm")
        library = self.cpp_info.components["serialComm"]
        library.libs = ["vexo_serialComm"]
        library.requires = ["log4cplus::log4cplus"]
        library.set_property("cmake_target_name", "serialComm::serialComm")
        library.set_property("pkg_config_name", "serialComm")
        line = self.cpp_info.components["line"]
        line.libs = ["vexo_serialCommLine"]
        line.requires = ["serialComm"]
        line.set_property("cmake_target_name", "serialComm::line")
        line.set_property("pkg_config_name", "serialCommLine")
        testing = self.cpp_info.components["testing"]
        testing.libs = ["serialComm_testing"]
        testing.requires = ["serialComm"]
        testing.set_property("cmake_target_name", "serialComm::testing")
