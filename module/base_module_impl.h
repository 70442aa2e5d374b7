/// The module object: a factory for detectors.
#pragma once

#include <cstring>

#include "sdk/contract_names.h"
#include "sdk/module.h"

/// Creates detectors of the class `Detector`, which is constructed from (peer, host object). Owner thread.
template <class Detector>
class BaseModuleImpl final : public OKM8::Analytics::IModule {
  public:
    /// `hostObject` is not owned and may be null; then there are no detectors.
    explicit BaseModuleImpl(void* hostObject) : host_(hostObject) {}
    OKM8_OBJECT_DESTRUCTOR_SLOT(BaseModuleImpl)

    OKM8_OVERLOADS_IN_SLOT_ORDER(void* QueryContract(const char* contractName) override,
                                 void* QueryContract(const char* contractName) const override);

    /// As documented in sdk/module.h.
    OKM8::Analytics::IDetector* CreateDetector(void* reserved, OKM8::IContract* detectorPeer) override;

  private:
    void* host_;
};

template <class Detector>
void* BaseModuleImpl<Detector>::QueryContract(const char* contractName) {
    namespace ContractName = OKM8::ContractName;
    if (contractName == nullptr) {
        return nullptr;
    }
    for (const char* known : {ContractName::IContract, ContractName::IPluginModule, ContractName::IModule}) {
        if (std::strcmp(contractName, known) == 0) {
            return this;
        }
    }
    return nullptr;
}

template <class Detector>
void* BaseModuleImpl<Detector>::QueryContract(const char* contractName) const {
    return const_cast<BaseModuleImpl*>(this)->QueryContract(contractName);
}

template <class Detector>
OKM8::Analytics::IDetector* BaseModuleImpl<Detector>::CreateDetector(void* /*reserved*/,
                                                                     OKM8::IContract* detectorPeer) {
    if (detectorPeer == nullptr || host_ == nullptr) {
        return nullptr;
    }
    return new Detector(detectorPeer, host_);
}
