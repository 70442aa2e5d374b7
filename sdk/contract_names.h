/// The contract names: the strings by which interfaces are asked for. Compared byte for byte, case-sensitively.
#pragma once

namespace OKM8 {
namespace ContractName {

inline constexpr char IContract[] = "struct OKM8::IContract";
inline constexpr char IDestroyable[] = "struct OKM8::IDestroyable";
inline constexpr char IAsyncAdjuster[] = "struct OKM8::IAsyncAdjuster";
inline constexpr char IErrorInfoProvider[] = "struct OKM8::IErrorInfoProvider";
inline constexpr char ILogger[] = "struct OKM8::ILogger";
inline constexpr char ICloneable[] = "struct OKM8::ICloneable";
inline constexpr char IBinaryAdjuster[] = "struct OKM8::IBinaryAdjuster";

inline constexpr char IPluginModule[] = "struct OKM8::PLUGIN::IPluginModule";

inline constexpr char IModule[] = "struct OKM8::Analytics::IModule";
inline constexpr char IDetector[] = "struct OKM8::Analytics::IDetector";
inline constexpr char IMediaReceiver[] = "struct OKM8::Analytics::IMediaReceiver";
inline constexpr char IMediaReceiverSingle[] = "struct OKM8::Analytics::IMediaReceiverSingle";
inline constexpr char IMediaReceiverSingle2[] = "struct OKM8::Analytics::IMediaReceiverSingle2";
inline constexpr char IMediaReceiverController[] = "struct OKM8::Analytics::IMediaReceiverController";
inline constexpr char IDetectorEventRaiser[] = "struct OKM8::Analytics::IDetectorEventRaiser";
inline constexpr char IEventArgsAdjuster[] = "struct OKM8::Analytics::IEventArgsAdjuster";
inline constexpr char ITargetEnumeratorFactory[] = "struct OKM8::Analytics::ITargetEnumeratorFactory";
inline constexpr char ITargetEnumeratorAdjuster[] = "struct OKM8::Analytics::ITargetEnumeratorAdjuster";
inline constexpr char ITargetAdjuster[] = "struct OKM8::Analytics::ITargetAdjuster";

inline constexpr char IMultimediaBuffer[] = "struct OKM8::MFF::IMultimediaBuffer";
inline constexpr char ICompositeBuffer[] = "struct OKM8::MFF::ICompositeBuffer";

}  // namespace ContractName
}  // namespace OKM8
