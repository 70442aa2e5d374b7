#include <array>
#include <cstdlib>
#include <cstring>

#include "image_transform/kernels/kernel.h"

namespace image_transform::kernels {

std::span<const Kernel> AllKernels() {
    static const std::array<Kernel, 1> all = {scalarKernel};
    return all;
}

const Kernel& ChooseKernel(const char* name) {
    const std::span<const Kernel> all = AllKernels();
    const Kernel* chosen = nullptr;
    for (const Kernel& kernel : all) {
        if (!kernel.isSupported()) {
            continue;
        }
        if (name != nullptr && std::strcmp(kernel.name, name) == 0) {
            return kernel;
        }
        if (chosen == nullptr) {
            chosen = &kernel;
        }
    }
    return chosen != nullptr ? *chosen : all.back();
}

const Kernel& ActiveKernel() {
    static const Kernel& active = ChooseKernel(std::getenv("VEXLANE_KERNEL"));
    return active;
}

}  // namespace image_transform::kernels
