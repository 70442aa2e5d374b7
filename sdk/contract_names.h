/// The contract names, the argument of QueryContract and GetInterface. Compared byte by byte, case-sensitive.
#pragma once

namespace OKM8 {
namespace ContractName {

constexpr char IContract[] = "struct OKM8::IContract";
constexpr char IDestroyable[] = "struct OKM8::IDestroyable";
constexpr char IAsyncAdjuster[] = "struct OKM8::IAsyncAdjuster";
constexpr char IErrorInfoProvider[] = "struct OKM8::IErrorInfoProvider";
constexpr char ILogger[] = "struct OKM8::ILogger";
constexpr char ICloneable[] = "struct OKM8::ICloneable";
constexpr char IBinaryAdjuster[] = "struct OKM8::IBinaryAdjuster";

constexpr char IPluginModule[] = "struct OKM8::PLUGIN::IPluginModule";

constexpr char IModule[] = "struct OKM8::Analytics::IModule";
constexpr char IDetector[] = "struct OKM8::Analytics::IDetector";
constexpr char IMediaReceiver[] = "struct OKM8::Analytics::IMediaReceiver";
constexpr char IMediaReceiverSingle[] = "struct OKM8::Analytics::IMediaReceiverSingle";
constexpr char IMediaReceiverSingle2[] = "struct OKM8::Analytics::IMediaReceiverSingle2";
constexpr char IMediaReceiverController[] = "struct OKM8::Analytics::IMediaReceiverController";
constexpr char IDetectorEventRaiser[] = "struct OKM8::Analytics::IDetectorEventRaiser";
constexpr char IEventArgsAdjuster[] = "struct OKM8::Analytics::IEventArgsAdjuster";
constexpr char ITargetEnumeratorFactory[] = "struct OKM8::Analytics::ITargetEnumeratorFactory";
constexpr char ITargetEnumeratorAdjuster[] = "struct OKM8::Analytics::ITargetEnumeratorAdjuster";
constexpr char ITargetAdjuster[] = "struct OKM8::Analytics::ITargetAdjuster";

constexpr char IMultimediaBuffer[] = "struct OKM8::MFF::IMultimediaBuffer";
constexpr char ICompositeBuffer[] = "struct OKM8::MFF::ICompositeBuffer";

}  // namespace ContractName
}  // namespace OKM8
