#pragma once

#include "h323/schema/Schema.h"

// H.245 version 17: MultimediaSystemControlMessage and every type that it contains.
namespace asn1::h245 {

inline constexpr Alphabet kDialedDigits("0123456789#*,");
inline constexpr Alphabet kSignalTypes("0123456789#*ABCD!");

// Types that contain themselves through others need a declaration. The number counts the entries of the table.
extern inline const Sequence<4> GenericParameter;
extern inline const Sequence<3> DataApplicationCapability;
extern inline const Choice<8> VideoCapability;
extern inline const Choice<27> AudioCapability;
extern inline const Choice<14> DataType;
extern inline const Sequence<2> MultiplexElement;
extern inline const Choice<24> AudioMode;
extern inline const Choice<12> ModeElementType;

inline constexpr Sequence NonStandardIdentifier_h221NonStandard({
    {"t35CountryCode", Integer<0, 255>},
    {"t35Extension", Integer<0, 255>},
    {"manufacturerCode", Integer<0, 65535>},
});

inline constexpr Choice NonStandardIdentifier({
    {"object", ObjectIdentifier},
    {"h221NonStandard", NonStandardIdentifier_h221NonStandard},
});

inline constexpr Sequence NonStandardParameter({
    {"nonStandardIdentifier", NonStandardIdentifier},
    {"data", OctetString<>},
});

inline constexpr Sequence NonStandardMessage({
    {"nonStandardData", NonStandardParameter},
    kExtensible,
});

inline constexpr Sequence MasterSlaveDetermination({
    {"terminalType", Integer<0, 255>},
    {"statusDeterminationNumber", Integer<0, 16777215>},
    kExtensible,
});

inline constexpr const auto& SequenceNumber = Integer<0, 255>;

inline constexpr Choice Q2931Address_address({
    {"internationalNumber", NumericString<1, 16>},
    {"nsapAddress", OctetString<1, 20>},
    kExtensible,
});

inline constexpr Sequence Q2931Address({
    {"address", Q2931Address_address},
    {"subaddress", OctetString<1, 20>, kOptional},
    kExtensible,
});

inline constexpr Sequence VCCapability_aal1({
    {"nullClockRecovery", Boolean},
    {"srtsClockRecovery", Boolean},
    {"adaptiveClockRecovery", Boolean},
    {"nullErrorCorrection", Boolean},
    {"longInterleaver", Boolean},
    {"shortInterleaver", Boolean},
    {"errorCorrectionOnly", Boolean},
    {"structuredDataTransfer", Boolean},
    {"partiallyFilledCells", Boolean},
    kExtensible,
});

inline constexpr Sequence VCCapability_aal5({
    {"forwardMaximumSDUSize", Integer<0, 65535>},
    {"backwardMaximumSDUSize", Integer<0, 65535>},
    kExtensible,
});

inline constexpr Sequence VCCapability_availableBitRates_type_rangeOfBitRates({
    {"lowerBitRate", Integer<1, 65535>},
    {"higherBitRate", Integer<1, 65535>},
});

inline constexpr Choice VCCapability_availableBitRates_type({
    {"singleBitRate", Integer<1, 65535>},
    {"rangeOfBitRates", VCCapability_availableBitRates_type_rangeOfBitRates},
});

inline constexpr Sequence VCCapability_availableBitRates({
    {"type", VCCapability_availableBitRates_type},
    kExtensible,
});

inline constexpr Sequence VCCapability_aal1ViaGateway({
    {"gatewayAddress", SequenceOf<Q2931Address, 1, 256>},
    {"nullClockRecovery", Boolean},
    {"srtsClockRecovery", Boolean},
    {"adaptiveClockRecovery", Boolean},
    {"nullErrorCorrection", Boolean},
    {"longInterleaver", Boolean},
    {"shortInterleaver", Boolean},
    {"errorCorrectionOnly", Boolean},
    {"structuredDataTransfer", Boolean},
    {"partiallyFilledCells", Boolean},
    kExtensible,
});

inline constexpr Sequence VCCapability({
    {"aal1", VCCapability_aal1, kOptional},
    {"aal5", VCCapability_aal5, kOptional},
    {"transportStream", Boolean},
    {"programStream", Boolean},
    {"availableBitRates", VCCapability_availableBitRates},
    kExtensible,
    {"aal1ViaGateway", VCCapability_aal1ViaGateway, kOptional},
});

inline constexpr Sequence H222Capability({
    {"numberOfVCs", Integer<1, 256>},
    {"vcCapability", SequenceOf<VCCapability>},
    kExtensible,
});

inline constexpr Sequence H223AnnexCCapability({
    {"videoWithAL1M", Boolean},
    {"videoWithAL2M", Boolean},
    {"videoWithAL3M", Boolean},
    {"audioWithAL1M", Boolean},
    {"audioWithAL2M", Boolean},
    {"audioWithAL3M", Boolean},
    {"dataWithAL1M", Boolean},
    {"dataWithAL2M", Boolean},
    {"dataWithAL3M", Boolean},
    {"alpduInterleaving", Boolean},
    {"maximumAL1MPDUSize", Integer<0, 65535>},
    {"maximumAL2MSDUSize", Integer<0, 65535>},
    {"maximumAL3MSDUSize", Integer<0, 65535>},
    kExtensible,
    {"rsCodeCapability", Boolean, kOptional},
});

inline constexpr Sequence H223Capability_h223MultiplexTableCapability_enhanced({
    {"maximumNestingDepth", Integer<1, 15>},
    {"maximumElementListSize", Integer<2, 255>},
    {"maximumSubElementListSize", Integer<2, 255>},
    kExtensible,
});

inline constexpr Choice H223Capability_h223MultiplexTableCapability({
    {"basic", Null},
    {"enhanced", H223Capability_h223MultiplexTableCapability_enhanced},
});

inline constexpr Sequence H223Capability_mobileOperationTransmitCapability({
    {"modeChangeCapability", Boolean},
    {"h223AnnexA", Boolean},
    {"h223AnnexADoubleFlag", Boolean},
    {"h223AnnexB", Boolean},
    {"h223AnnexBwithHeader", Boolean},
    kExtensible,
});

inline constexpr Sequence H223Capability_mobileMultilinkFrameCapability({
    {"maximumSampleSize", Integer<1, 255>},
    {"maximumPayloadLength", Integer<1, 65025>},
    kExtensible,
});

inline constexpr Sequence H223Capability({
    {"transportWithI_frames", Boolean},
    {"videoWithAL1", Boolean},
    {"videoWithAL2", Boolean},
    {"videoWithAL3", Boolean},
    {"audioWithAL1", Boolean},
    {"audioWithAL2", Boolean},
    {"audioWithAL3", Boolean},
    {"dataWithAL1", Boolean},
    {"dataWithAL2", Boolean},
    {"dataWithAL3", Boolean},
    {"maximumAl2SDUSize", Integer<0, 65535>},
    {"maximumAl3SDUSize", Integer<0, 65535>},
    {"maximumDelayJitter", Integer<0, 1023>},
    {"h223MultiplexTableCapability", H223Capability_h223MultiplexTableCapability},
    kExtensible,
    {"maxMUXPDUSizeCapability", Boolean},
    {"nsrpSupport", Boolean},
    {"mobileOperationTransmitCapability", H223Capability_mobileOperationTransmitCapability, kOptional},
    {"h223AnnexCCapability", H223AnnexCCapability, kOptional},
    {"bitRate", Integer<1, 19200>, kOptional},
    {"mobileMultilinkFrameCapability", H223Capability_mobileMultilinkFrameCapability, kOptional},
});

inline constexpr Sequence V75Capability({
    {"audioHeader", Boolean},
    kExtensible,
});

inline constexpr Sequence V76Capability({
    {"suspendResumeCapabilitywAddress", Boolean},
    {"suspendResumeCapabilitywoAddress", Boolean},
    {"rejCapability", Boolean},
    {"sREJCapability", Boolean},
    {"mREJCapability", Boolean},
    {"crc8bitCapability", Boolean},
    {"crc16bitCapability", Boolean},
    {"crc32bitCapability", Boolean},
    {"uihCapability", Boolean},
    {"numOfDLCS", Integer<2, 8191>},
    {"twoOctetAddressFieldCapability", Boolean},
    {"loopBackTestCapability", Boolean},
    {"n401Capability", Integer<1, 4095>},
    {"maxWindowSizeCapability", Integer<1, 127>},
    {"v75Capability", V75Capability},
    kExtensible,
});

inline constexpr Sequence V42bis({
    {"numberOfCodewords", Integer<1, 65536>},
    {"maximumStringLength", Integer<1, 256>},
    kExtensible,
});

inline constexpr Choice CompressionType({
    {"v42bis", V42bis},
    kExtensible,
});

inline constexpr const auto& SCTPChunkType = Integer<0, 255>;

inline constexpr Choice CapabilityIdentifier({
    {"standard", ObjectIdentifier},
    {"h221NonStandard", NonStandardParameter},
    {"uuid", OctetString<16>},
    {"domainBased", IA5String<1, 64>},
    kExtensible,
});

inline constexpr Choice ParameterIdentifier({
    {"standard", Integer<0, 127>},
    {"h221NonStandard", NonStandardParameter},
    {"uuid", OctetString<16>},
    {"domainBased", IA5String<1, 64>},
    kExtensible,
});

inline constexpr Choice ParameterValue({
    {"logical", Null},
    {"booleanArray", Integer<0, 255>},
    {"unsignedMin", Integer<0, 65535>},
    {"unsignedMax", Integer<0, 65535>},
    {"unsigned32Min", Integer<0, 4294967295>},
    {"unsigned32Max", Integer<0, 4294967295>},
    {"octetString", OctetString<>},
    {"genericParameter", SequenceOf<GenericParameter>},
    kExtensible,
});

inline constexpr Sequence<4> GenericParameter({
    {"parameterIdentifier", ParameterIdentifier},
    {"parameterValue", ParameterValue},
    {"supersedes", SequenceOf<ParameterIdentifier>, kOptional},
    kExtensible,
});

inline constexpr Sequence GenericMessage({
    {"messageIdentifier", CapabilityIdentifier},
    {"subMessageIdentifier", Integer<0, 127>, kOptional},
    {"messageContent", SequenceOf<GenericParameter>, kOptional},
    kExtensible,
});

inline constexpr const auto& GenericInformation = GenericMessage;

inline constexpr Sequence SctpParam({
    {"appPPID", SequenceOf<Integer<1, 4294967295>>, kOptional},
    {"maxMessageSize", Integer<>, kOptional},
    {"sctpExtensions", SequenceOf<SCTPChunkType>, kOptional},
    {"genericInformation", SequenceOf<GenericInformation>, kOptional},
    {"sctpPort", Integer<0, 65535>, kOptional},
    kExtensible,
});

inline constexpr Choice DataProtocolCapability_v76wCompression({
    {"transmitCompression", CompressionType},
    {"receiveCompression", CompressionType},
    {"transmitAndReceiveCompression", CompressionType},
    kExtensible,
});

inline constexpr Choice DataProtocolCapability({
    {"nonStandard", NonStandardParameter},
    {"v14buffered", Null},
    {"v42lapm", Null},
    {"hdlcFrameTunnelling", Null},
    {"h310SeparateVCStack", Null},
    {"h310SingleVCStack", Null},
    {"transparent", Null},
    kExtensible,
    {"segmentationAndReassembly", Null},
    {"hdlcFrameTunnelingwSAR", Null},
    {"v120", Null},
    {"separateLANStack", Null},
    {"v76wCompression", DataProtocolCapability_v76wCompression},
    {"tcp", Null},
    {"udp", Null},
    {"sctp", SctpParam},
    {"udp_dtls_sctp", SequenceOf<SctpParam>},
    {"tcp_dtls_sctp", SequenceOf<SctpParam>},
    {"sctp_dtls", SctpParam},
});

inline constexpr Sequence T84Profile_t84Restricted({
    {"qcif", Boolean},
    {"cif", Boolean},
    {"ccir601Seq", Boolean},
    {"ccir601Prog", Boolean},
    {"hdtvSeq", Boolean},
    {"hdtvProg", Boolean},
    {"g3FacsMH200x100", Boolean},
    {"g3FacsMH200x200", Boolean},
    {"g4FacsMMR200x100", Boolean},
    {"g4FacsMMR200x200", Boolean},
    {"jbig200x200Seq", Boolean},
    {"jbig200x200Prog", Boolean},
    {"jbig300x300Seq", Boolean},
    {"jbig300x300Prog", Boolean},
    {"digPhotoLow", Boolean},
    {"digPhotoMedSeq", Boolean},
    {"digPhotoMedProg", Boolean},
    {"digPhotoHighSeq", Boolean},
    {"digPhotoHighProg", Boolean},
    kExtensible,
});

inline constexpr Choice T84Profile({
    {"t84Unrestricted", Null},
    {"t84Restricted", T84Profile_t84Restricted},
});

inline constexpr Choice T38FaxRateManagement({
    {"localTCF", Null},
    {"transferredTCF", Null},
    kExtensible,
});

inline constexpr Choice T38FaxUdpOptions_t38FaxUdpEC({
    {"t38UDPFEC", Null},
    {"t38UDPRedundancy", Null},
    kExtensible,
});

inline constexpr Sequence T38FaxUdpOptions({
    {"t38FaxMaxBuffer", Integer<>, kOptional},
    {"t38FaxMaxDatagram", Integer<>, kOptional},
    {"t38FaxUdpEC", T38FaxUdpOptions_t38FaxUdpEC},
});

inline constexpr Sequence T38FaxTcpOptions({
    {"t38TCPBidirectionalMode", Boolean},
    kExtensible,
});

inline constexpr Sequence T38FaxProfile({
    {"fillBitRemoval", Boolean},
    {"transcodingJBIG", Boolean},
    {"transcodingMMR", Boolean},
    kExtensible,
    {"version", Integer<0, 255>},
    {"t38FaxRateManagement", T38FaxRateManagement},
    {"t38FaxUdpOptions", T38FaxUdpOptions, kOptional},
    {"t38FaxTcpOptions", T38FaxTcpOptions, kOptional},
});

inline constexpr Sequence GenericCapability({
    {"capabilityIdentifier", CapabilityIdentifier},
    {"maxBitRate", Integer<0, 4294967295>, kOptional},
    {"collapsing", SequenceOf<GenericParameter>, kOptional},
    {"nonCollapsing", SequenceOf<GenericParameter>, kOptional},
    {"nonCollapsingRaw", OctetString<>, kOptional},
    {"transport", DataProtocolCapability, kOptional},
    kExtensible,
});

inline constexpr Choice DataChannelProfile_reliabilityParm({
    {"maxRetr", Integer<0, 4294967295>},
    {"maxTime", Integer<0, 4294967295>},
    kExtensible,
});

inline constexpr Choice DataChannelProfile_establishmentType({
    {"sctpStreamID", Integer<0, 65535>},
    {"dcep", Null},
    kExtensible,
});

inline constexpr Sequence DataChannelProfile({
    {"ordered", Boolean, kOptional},
    {"priority", Integer<0, 65535>, kOptional},
    {"reliabilityParm", DataChannelProfile_reliabilityParm, kOptional},
    {"label", IA5String<1, 65535>, kOptional},
    {"protocol", IA5String<1, 65535>, kOptional},
    {"genericInformation", SequenceOf<GenericInformation>, kOptional},
    {"establishmentType", DataChannelProfile_establishmentType},
    kExtensible,
});

inline constexpr Sequence DataChannel({
    {"dataChannelProfile", SequenceOf<DataChannelProfile>, kOptional},
    kExtensible,
});

inline constexpr Sequence ExtendedDataApplicationCapability({
    {"dataCapability", SequenceOf<DataApplicationCapability>},
    {"dataCapabilityExtension", SequenceOf<GenericCapability>, kOptional},
    kExtensible,
});

inline constexpr Sequence DataApplicationCapability_application_t84({
    {"t84Protocol", DataProtocolCapability},
    {"t84Profile", T84Profile},
});

inline constexpr Sequence DataApplicationCapability_application_nlpid({
    {"nlpidProtocol", DataProtocolCapability},
    {"nlpidData", OctetString<>},
});

inline constexpr Sequence DataApplicationCapability_application_t38fax({
    {"t38FaxProtocol", DataProtocolCapability},
    {"t38FaxProfile", T38FaxProfile},
});

inline constexpr Choice DataApplicationCapability_application({
    {"nonStandard", NonStandardParameter},
    {"t120", DataProtocolCapability},
    {"dsm_cc", DataProtocolCapability},
    {"userData", DataProtocolCapability},
    {"t84", DataApplicationCapability_application_t84},
    {"t434", DataProtocolCapability},
    {"h224", DataProtocolCapability},
    {"nlpid", DataApplicationCapability_application_nlpid},
    {"dsvdControl", Null},
    {"h222DataPartitioning", DataProtocolCapability},
    kExtensible,
    {"t30fax", DataProtocolCapability},
    {"t140", DataProtocolCapability},
    {"t38fax", DataApplicationCapability_application_t38fax},
    {"genericDataCapability", GenericCapability},
    {"dataChannel", SequenceOf<DataChannel>},
    {"extendedDataApplicationCapability", ExtendedDataApplicationCapability},
});

inline constexpr Sequence<3> DataApplicationCapability({
    {"application", DataApplicationCapability_application},
    {"maxBitRate", Integer<0, 4294967295>},
    kExtensible,
});

inline constexpr Sequence MediaDistributionCapability({
    {"centralizedControl", Boolean},
    {"distributedControl", Boolean},
    {"centralizedAudio", Boolean},
    {"distributedAudio", Boolean},
    {"centralizedVideo", Boolean},
    {"distributedVideo", Boolean},
    {"centralizedData", SequenceOf<DataApplicationCapability>, kOptional},
    {"distributedData", SequenceOf<DataApplicationCapability>, kOptional},
    kExtensible,
});

inline constexpr Sequence MultipointCapability({
    {"multicastCapability", Boolean},
    {"multiUniCastConference", Boolean},
    {"mediaDistributionCapability", SequenceOf<MediaDistributionCapability>},
    kExtensible,
});

inline constexpr Choice RTPPayloadType_payloadDescriptor({
    {"nonStandardIdentifier", NonStandardParameter},
    {"rfc_number", ExtensibleInteger<1, 32768>},
    {"oid", ObjectIdentifier},
    kExtensible,
});

inline constexpr Sequence RTPPayloadType({
    {"payloadDescriptor", RTPPayloadType_payloadDescriptor},
    {"payloadType", Integer<0, 127>, kOptional},
    kExtensible,
});

inline constexpr Sequence MediaPacketizationCapability({
    {"h261aVideoPacketization", Boolean},
    kExtensible,
    {"rtpPayloadType", SequenceOf<RTPPayloadType, 1, 256>, kOptional},
});

inline constexpr Choice QOSMode({
    {"guaranteedQOS", Null},
    {"controlledLoad", Null},
    kExtensible,
});

inline constexpr Sequence RSVPParameters({
    {"qosMode", QOSMode, kOptional},
    {"tokenRate", Integer<1, 4294967295>, kOptional},
    {"bucketSize", Integer<1, 4294967295>, kOptional},
    {"peakRate", Integer<1, 4294967295>, kOptional},
    {"minPoliced", Integer<1, 4294967295>, kOptional},
    {"maxPktSize", Integer<1, 4294967295>, kOptional},
    kExtensible,
});

inline constexpr Sequence ATMParameters({
    {"maxNTUSize", Integer<0, 65535>},
    {"atmUBR", Boolean},
    {"atmrtVBR", Boolean},
    {"atmnrtVBR", Boolean},
    {"atmABR", Boolean},
    {"atmCBR", Boolean},
    kExtensible,
});

inline constexpr Sequence GenericTransportParameters({
    {"nonStandardData", NonStandardParameter, kOptional},
    {"averageRate", Integer<1, 4294967295>, kOptional},
    {"burst", Integer<1, 4294967295>, kOptional},
    {"peakRate", Integer<1, 4294967295>, kOptional},
    {"maxPktSize", Integer<1, 4294967295>, kOptional},
    kExtensible,
});

inline constexpr Sequence ServicePriorityValue({
    {"nonStandardParameter", NonStandardParameter, kOptional},
    kExtensible,
    {"value", Integer<0, 255>},
});

inline constexpr Sequence ServicePriority({
    {"nonStandardData", NonStandardParameter, kOptional},
    {"servicePrioritySignalled", Boolean},
    {"servicePriorityValue", ServicePriorityValue, kOptional},
    kExtensible,
    {"serviceClass", Integer<0, 4095>, kOptional},
    {"serviceSubclass", Integer<0, 255>, kOptional},
});

inline constexpr Sequence AuthorizationParameters({
    {"nonStandardData", NonStandardParameter, kOptional},
    kExtensible,
});

inline constexpr Choice QOSType({
    {"desired", Null},
    {"required", Null},
    kExtensible,
});

inline constexpr Choice QOSClass({
    {"class0", Null},
    {"class1", Null},
    {"class2", Null},
    {"class3", Null},
    {"class4", Null},
    {"class5", Null},
    kExtensible,
});

inline constexpr Sequence QOSDescriptor({
    {"nonStandardData", NonStandardParameter, kOptional},
    {"qosType", QOSType},
    {"qosClass", QOSClass},
    kExtensible,
});

inline constexpr Sequence QOSCapability({
    {"nonStandardData", NonStandardParameter, kOptional},
    {"rsvpParameters", RSVPParameters, kOptional},
    {"atmParameters", ATMParameters, kOptional},
    kExtensible,
    {"localQoS", Boolean, kOptional},
    {"genericTransportParameters", GenericTransportParameters, kOptional},
    {"servicePriority", ServicePriority, kOptional},
    {"authorizationParameter", AuthorizationParameters, kOptional},
    {"qosDescriptor", QOSDescriptor, kOptional},
    {"dscpValue", Integer<0, 63>, kOptional},
});

inline constexpr Sequence MediaTransportType_atm_AAL5_compressed({
    {"variable_delta", Boolean},
    kExtensible,
});

inline constexpr Choice MediaTransportType({
    {"ip_UDP", Null},
    {"ip_TCP", Null},
    {"atm_AAL5_UNIDIR", Null},
    {"atm_AAL5_BIDIR", Null},
    kExtensible,
    {"atm_AAL5_compressed", MediaTransportType_atm_AAL5_compressed},
    {"sctp", SctpParam},
    {"udp_dtls_sctp", SequenceOf<SctpParam>},
    {"tcp_dtls_sctp", SequenceOf<SctpParam>},
    {"sctp_dtls", SctpParam},
});

inline constexpr Sequence MediaChannelCapability({
    {"mediaTransport", MediaTransportType, kOptional},
    kExtensible,
});

inline constexpr Sequence TransportCapability({
    {"nonStandard", NonStandardParameter, kOptional},
    {"qOSCapabilities", SequenceOf<QOSCapability, 1, 256>, kOptional},
    {"mediaChannelCapabilities", SequenceOf<MediaChannelCapability, 1, 256>, kOptional},
    kExtensible,
});

inline constexpr Sequence RTPH263VideoRedundancyFrameMapping({
    {"threadNumber", Integer<0, 15>},
    {"frameSequence", SequenceOf<Integer<0, 255>, 1, 256>},
    kExtensible,
});

inline constexpr Choice RTPH263VideoRedundancyEncoding_frameToThreadMapping({
    {"roundrobin", Null},
    {"custom", SequenceOf<RTPH263VideoRedundancyFrameMapping, 1, 256>},
    kExtensible,
});

inline constexpr Sequence RTPH263VideoRedundancyEncoding({
    {"numberOfThreads", Integer<1, 16>},
    {"framesBetweenSyncPoints", Integer<1, 256>},
    {"frameToThreadMapping", RTPH263VideoRedundancyEncoding_frameToThreadMapping},
    {"containedThreads", SequenceOf<Integer<0, 15>, 1, 256>, kOptional},
    kExtensible,
});

inline constexpr Choice RedundancyEncodingMethod({
    {"nonStandard", NonStandardParameter},
    {"rtpAudioRedundancyEncoding", Null},
    kExtensible,
    {"rtpH263VideoRedundancyEncoding", RTPH263VideoRedundancyEncoding},
});

inline constexpr const auto& CapabilityTableEntryNumber = Integer<1, 65535>;

inline constexpr Sequence RedundancyEncodingCapability({
    {"redundancyEncodingMethod", RedundancyEncodingMethod},
    {"primaryEncoding", CapabilityTableEntryNumber},
    {"secondaryEncoding", SequenceOf<CapabilityTableEntryNumber, 1, 256>, kOptional},
    kExtensible,
});

inline constexpr Sequence H2250Capability_mcCapability({
    {"centralizedConferenceMC", Boolean},
    {"decentralizedConferenceMC", Boolean},
    kExtensible,
});

inline constexpr Sequence H2250Capability({
    {"maximumAudioDelayJitter", Integer<0, 1023>},
    {"receiveMultipointCapability", MultipointCapability},
    {"transmitMultipointCapability", MultipointCapability},
    {"receiveAndTransmitMultipointCapability", MultipointCapability},
    {"mcCapability", H2250Capability_mcCapability},
    {"rtcpVideoControlCapability", Boolean},
    {"mediaPacketizationCapability", MediaPacketizationCapability},
    kExtensible,
    {"transportCapability", TransportCapability, kOptional},
    {"redundancyEncodingCapability", SequenceOf<RedundancyEncodingCapability, 1, 256>, kOptional},
    {"logicalChannelSwitchingCapability", Boolean},
    {"t120DynamicPortCapability", Boolean},
});

inline constexpr Choice MultiplexCapability({
    {"nonStandard", NonStandardParameter},
    {"h222Capability", H222Capability},
    {"h223Capability", H223Capability},
    {"v76Capability", V76Capability},
    kExtensible,
    {"h2250Capability", H2250Capability},
    {"genericMultiplexCapability", GenericCapability},
});

inline constexpr Sequence H261VideoCapability({
    {"qcifMPI", Integer<1, 4>, kOptional},
    {"cifMPI", Integer<1, 4>, kOptional},
    {"temporalSpatialTradeOffCapability", Boolean},
    {"maxBitRate", Integer<1, 19200>},
    {"stillImageTransmission", Boolean},
    kExtensible,
    {"videoBadMBsCap", Boolean},
});

inline constexpr Sequence H262VideoCapability({
    {"profileAndLevel_SPatML", Boolean},
    {"profileAndLevel_MPatLL", Boolean},
    {"profileAndLevel_MPatML", Boolean},
    {"profileAndLevel_MPatH_14", Boolean},
    {"profileAndLevel_MPatHL", Boolean},
    {"profileAndLevel_SNRatLL", Boolean},
    {"profileAndLevel_SNRatML", Boolean},
    {"profileAndLevel_SpatialatH_14", Boolean},
    {"profileAndLevel_HPatML", Boolean},
    {"profileAndLevel_HPatH_14", Boolean},
    {"profileAndLevel_HPatHL", Boolean},
    {"videoBitRate", Integer<0, 1073741823>, kOptional},
    {"vbvBufferSize", Integer<0, 262143>, kOptional},
    {"samplesPerLine", Integer<0, 16383>, kOptional},
    {"linesPerFrame", Integer<0, 16383>, kOptional},
    {"framesPerSecond", Integer<0, 15>, kOptional},
    {"luminanceSampleRate", Integer<0, 4294967295>, kOptional},
    kExtensible,
    {"videoBadMBsCap", Boolean},
});

inline constexpr Sequence TransparencyParameters({
    {"presentationOrder", Integer<1, 256>},
    {"offset_x", Integer<-262144, 262143>},
    {"offset_y", Integer<-262144, 262143>},
    {"scale_x", Integer<1, 255>},
    {"scale_y", Integer<1, 255>},
    kExtensible,
});

inline constexpr Sequence RefPictureSelection_additionalPictureMemory({
    {"sqcifAdditionalPictureMemory", Integer<1, 256>, kOptional},
    {"qcifAdditionalPictureMemory", Integer<1, 256>, kOptional},
    {"cifAdditionalPictureMemory", Integer<1, 256>, kOptional},
    {"cif4AdditionalPictureMemory", Integer<1, 256>, kOptional},
    {"cif16AdditionalPictureMemory", Integer<1, 256>, kOptional},
    {"bigCpfAdditionalPictureMemory", Integer<1, 256>, kOptional},
    kExtensible,
});

inline constexpr Choice RefPictureSelection_videoBackChannelSend({
    {"none", Null},
    {"ackMessageOnly", Null},
    {"nackMessageOnly", Null},
    {"ackOrNackMessageOnly", Null},
    {"ackAndNackMessage", Null},
    kExtensible,
});

inline constexpr Sequence RefPictureSelection_enhancedReferencePicSelect_subPictureRemovalParameters({
    {"mpuHorizMBs", Integer<1, 128>},
    {"mpuVertMBs", Integer<1, 72>},
    {"mpuTotalNumber", Integer<1, 65536>},
    kExtensible,
});

inline constexpr Sequence RefPictureSelection_enhancedReferencePicSelect({
    {"subPictureRemovalParameters", RefPictureSelection_enhancedReferencePicSelect_subPictureRemovalParameters,
     kOptional},
    kExtensible,
});

inline constexpr Sequence RefPictureSelection({
    {"additionalPictureMemory", RefPictureSelection_additionalPictureMemory, kOptional},
    {"videoMux", Boolean},
    {"videoBackChannelSend", RefPictureSelection_videoBackChannelSend},
    kExtensible,
    {"enhancedReferencePicSelect", RefPictureSelection_enhancedReferencePicSelect},
});

inline constexpr Sequence CustomPictureClockFrequency({
    {"clockConversionCode", Integer<1000, 1001>},
    {"clockDivisor", Integer<1, 127>},
    {"sqcifMPI", Integer<1, 2048>, kOptional},
    {"qcifMPI", Integer<1, 2048>, kOptional},
    {"cifMPI", Integer<1, 2048>, kOptional},
    {"cif4MPI", Integer<1, 2048>, kOptional},
    {"cif16MPI", Integer<1, 2048>, kOptional},
    kExtensible,
});

inline constexpr Sequence CustomPictureFormat_mPI_customPCF_element({
    {"clockConversionCode", Integer<1000, 1001>},
    {"clockDivisor", Integer<1, 127>},
    {"customMPI", Integer<1, 2048>},
    kExtensible,
});

inline constexpr Sequence CustomPictureFormat_mPI({
    {"standardMPI", Integer<1, 31>, kOptional},
    {"customPCF", SequenceOf<CustomPictureFormat_mPI_customPCF_element, 1, 16>, kOptional},
    kExtensible,
});

inline constexpr Sequence CustomPictureFormat_pixelAspectInformation_extendedPAR_element({
    {"width", Integer<1, 255>},
    {"height", Integer<1, 255>},
    kExtensible,
});

inline constexpr Choice CustomPictureFormat_pixelAspectInformation({
    {"anyPixelAspectRatio", Boolean},
    {"pixelAspectCode", SequenceOf<Integer<1, 14>, 1, 14>},
    {"extendedPAR", SequenceOf<CustomPictureFormat_pixelAspectInformation_extendedPAR_element, 1, 256>},
    kExtensible,
});

inline constexpr Sequence CustomPictureFormat({
    {"maxCustomPictureWidth", Integer<1, 2048>},
    {"maxCustomPictureHeight", Integer<1, 2048>},
    {"minCustomPictureWidth", Integer<1, 2048>},
    {"minCustomPictureHeight", Integer<1, 2048>},
    {"mPI", CustomPictureFormat_mPI},
    {"pixelAspectInformation", CustomPictureFormat_pixelAspectInformation},
    kExtensible,
});

inline constexpr Sequence H263Version3Options({
    {"dataPartitionedSlices", Boolean},
    {"fixedPointIDCT0", Boolean},
    {"interlacedFields", Boolean},
    {"currentPictureHeaderRepetition", Boolean},
    {"previousPictureHeaderRepetition", Boolean},
    {"nextPictureHeaderRepetition", Boolean},
    {"pictureNumber", Boolean},
    {"spareReferencePictures", Boolean},
    kExtensible,
});

inline constexpr Sequence H263ModeComboFlags({
    {"unrestrictedVector", Boolean},
    {"arithmeticCoding", Boolean},
    {"advancedPrediction", Boolean},
    {"pbFrames", Boolean},
    {"advancedIntraCodingMode", Boolean},
    {"deblockingFilterMode", Boolean},
    {"unlimitedMotionVectors", Boolean},
    {"slicesInOrder_NonRect", Boolean},
    {"slicesInOrder_Rect", Boolean},
    {"slicesNoOrder_NonRect", Boolean},
    {"slicesNoOrder_Rect", Boolean},
    {"improvedPBFramesMode", Boolean},
    {"referencePicSelect", Boolean},
    {"dynamicPictureResizingByFour", Boolean},
    {"dynamicPictureResizingSixteenthPel", Boolean},
    {"dynamicWarpingHalfPel", Boolean},
    {"dynamicWarpingSixteenthPel", Boolean},
    {"reducedResolutionUpdate", Boolean},
    {"independentSegmentDecoding", Boolean},
    {"alternateInterVLCMode", Boolean},
    {"modifiedQuantizationMode", Boolean},
    kExtensible,
    {"enhancedReferencePicSelect", Boolean},
    {"h263Version3Options", H263Version3Options},
});

inline constexpr Sequence H263VideoModeCombos({
    {"h263VideoUncoupledModes", H263ModeComboFlags},
    {"h263VideoCoupledModes", SequenceOf<H263ModeComboFlags, 1, 16>},
    kExtensible,
});

inline constexpr Sequence H263Options({
    {"advancedIntraCodingMode", Boolean},
    {"deblockingFilterMode", Boolean},
    {"improvedPBFramesMode", Boolean},
    {"unlimitedMotionVectors", Boolean},
    {"fullPictureFreeze", Boolean},
    {"partialPictureFreezeAndRelease", Boolean},
    {"resizingPartPicFreezeAndRelease", Boolean},
    {"fullPictureSnapshot", Boolean},
    {"partialPictureSnapshot", Boolean},
    {"videoSegmentTagging", Boolean},
    {"progressiveRefinement", Boolean},
    {"dynamicPictureResizingByFour", Boolean},
    {"dynamicPictureResizingSixteenthPel", Boolean},
    {"dynamicWarpingHalfPel", Boolean},
    {"dynamicWarpingSixteenthPel", Boolean},
    {"independentSegmentDecoding", Boolean},
    {"slicesInOrder_NonRect", Boolean},
    {"slicesInOrder_Rect", Boolean},
    {"slicesNoOrder_NonRect", Boolean},
    {"slicesNoOrder_Rect", Boolean},
    {"alternateInterVLCMode", Boolean},
    {"modifiedQuantizationMode", Boolean},
    {"reducedResolutionUpdate", Boolean},
    {"transparencyParameters", TransparencyParameters, kOptional},
    {"separateVideoBackChannel", Boolean},
    {"refPictureSelection", RefPictureSelection, kOptional},
    {"customPictureClockFrequency", SequenceOf<CustomPictureClockFrequency, 1, 16>, kOptional},
    {"customPictureFormat", SequenceOf<CustomPictureFormat, 1, 16>, kOptional},
    {"modeCombos", SequenceOf<H263VideoModeCombos, 1, 16>, kOptional},
    kExtensible,
    {"videoBadMBsCap", Boolean},
    {"h263Version3Options", H263Version3Options},
});

inline constexpr Sequence EnhancementOptions({
    {"sqcifMPI", Integer<1, 32>, kOptional},
    {"qcifMPI", Integer<1, 32>, kOptional},
    {"cifMPI", Integer<1, 32>, kOptional},
    {"cif4MPI", Integer<1, 32>, kOptional},
    {"cif16MPI", Integer<1, 32>, kOptional},
    {"maxBitRate", Integer<1, 192400>},
    {"unrestrictedVector", Boolean},
    {"arithmeticCoding", Boolean},
    {"temporalSpatialTradeOffCapability", Boolean},
    {"slowSqcifMPI", Integer<1, 3600>, kOptional},
    {"slowQcifMPI", Integer<1, 3600>, kOptional},
    {"slowCifMPI", Integer<1, 3600>, kOptional},
    {"slowCif4MPI", Integer<1, 3600>, kOptional},
    {"slowCif16MPI", Integer<1, 3600>, kOptional},
    {"errorCompensation", Boolean},
    {"h263Options", H263Options, kOptional},
    kExtensible,
});

inline constexpr Sequence BEnhancementParameters({
    {"enhancementOptions", EnhancementOptions},
    {"numberOfBPictures", Integer<1, 64>},
    kExtensible,
});

inline constexpr Sequence EnhancementLayerInfo({
    {"baseBitRateConstrained", Boolean},
    {"snrEnhancement", SequenceOf<EnhancementOptions, 1, 14>, kOptional},
    {"spatialEnhancement", SequenceOf<EnhancementOptions, 1, 14>, kOptional},
    {"bPictureEnhancement", SequenceOf<BEnhancementParameters, 1, 14>, kOptional},
    kExtensible,
});

inline constexpr Sequence H263VideoCapability({
    {"sqcifMPI", Integer<1, 32>, kOptional},
    {"qcifMPI", Integer<1, 32>, kOptional},
    {"cifMPI", Integer<1, 32>, kOptional},
    {"cif4MPI", Integer<1, 32>, kOptional},
    {"cif16MPI", Integer<1, 32>, kOptional},
    {"maxBitRate", Integer<1, 192400>},
    {"unrestrictedVector", Boolean},
    {"arithmeticCoding", Boolean},
    {"advancedPrediction", Boolean},
    {"pbFrames", Boolean},
    {"temporalSpatialTradeOffCapability", Boolean},
    {"hrd_B", Integer<0, 524287>, kOptional},
    {"bppMaxKb", Integer<0, 65535>, kOptional},
    kExtensible,
    {"slowSqcifMPI", Integer<1, 3600>, kOptional},
    {"slowQcifMPI", Integer<1, 3600>, kOptional},
    {"slowCifMPI", Integer<1, 3600>, kOptional},
    {"slowCif4MPI", Integer<1, 3600>, kOptional},
    {"slowCif16MPI", Integer<1, 3600>, kOptional},
    {"errorCompensation", Boolean},
    {"enhancementLayerInfo", EnhancementLayerInfo, kOptional},
    {"h263Options", H263Options, kOptional},
});

inline constexpr Sequence IS11172VideoCapability({
    {"constrainedBitstream", Boolean},
    {"videoBitRate", Integer<0, 1073741823>, kOptional},
    {"vbvBufferSize", Integer<0, 262143>, kOptional},
    {"samplesPerLine", Integer<0, 16383>, kOptional},
    {"linesPerFrame", Integer<0, 16383>, kOptional},
    {"pictureRate", Integer<0, 15>, kOptional},
    {"luminanceSampleRate", Integer<0, 4294967295>, kOptional},
    kExtensible,
    {"videoBadMBsCap", Boolean},
});

inline constexpr Sequence ExtendedVideoCapability({
    {"videoCapability", SequenceOf<VideoCapability>},
    {"videoCapabilityExtension", SequenceOf<GenericCapability>, kOptional},
    kExtensible,
});

inline constexpr Choice<8> VideoCapability({
    {"nonStandard", NonStandardParameter},
    {"h261VideoCapability", H261VideoCapability},
    {"h262VideoCapability", H262VideoCapability},
    {"h263VideoCapability", H263VideoCapability},
    {"is11172VideoCapability", IS11172VideoCapability},
    kExtensible,
    {"genericVideoCapability", GenericCapability},
    {"extendedVideoCapability", ExtendedVideoCapability},
});

inline constexpr Sequence IS11172AudioCapability({
    {"audioLayer1", Boolean},
    {"audioLayer2", Boolean},
    {"audioLayer3", Boolean},
    {"audioSampling32k", Boolean},
    {"audioSampling44k1", Boolean},
    {"audioSampling48k", Boolean},
    {"singleChannel", Boolean},
    {"twoChannels", Boolean},
    {"bitRate", Integer<1, 448>},
    kExtensible,
});

inline constexpr Sequence IS13818AudioCapability({
    {"audioLayer1", Boolean},
    {"audioLayer2", Boolean},
    {"audioLayer3", Boolean},
    {"audioSampling16k", Boolean},
    {"audioSampling22k05", Boolean},
    {"audioSampling24k", Boolean},
    {"audioSampling32k", Boolean},
    {"audioSampling44k1", Boolean},
    {"audioSampling48k", Boolean},
    {"singleChannel", Boolean},
    {"twoChannels", Boolean},
    {"threeChannels2_1", Boolean},
    {"threeChannels3_0", Boolean},
    {"fourChannels2_0_2_0", Boolean},
    {"fourChannels2_2", Boolean},
    {"fourChannels3_1", Boolean},
    {"fiveChannels3_0_2_0", Boolean},
    {"fiveChannels3_2", Boolean},
    {"lowFrequencyEnhancement", Boolean},
    {"multilingual", Boolean},
    {"bitRate", Integer<1, 1130>},
    kExtensible,
});

inline constexpr Sequence G7231AnnexCCapability_g723AnnexCAudioMode({
    {"highRateMode0", Integer<27, 78>},
    {"highRateMode1", Integer<27, 78>},
    {"lowRateMode0", Integer<23, 66>},
    {"lowRateMode1", Integer<23, 66>},
    {"sidMode0", Integer<6, 17>},
    {"sidMode1", Integer<6, 17>},
    kExtensible,
});

inline constexpr Sequence G7231AnnexCCapability({
    {"maxAl_sduAudioFrames", Integer<1, 256>},
    {"silenceSuppression", Boolean},
    {"g723AnnexCAudioMode", G7231AnnexCCapability_g723AnnexCAudioMode, kOptional},
    kExtensible,
});

inline constexpr Sequence GSMAudioCapability({
    {"audioUnitSize", Integer<1, 256>},
    {"comfortNoise", Boolean},
    {"scrambled", Boolean},
    kExtensible,
});

inline constexpr Sequence G729Extensions({
    {"audioUnit", Integer<1, 256>, kOptional},
    {"annexA", Boolean},
    {"annexB", Boolean},
    {"annexD", Boolean},
    {"annexE", Boolean},
    {"annexF", Boolean},
    {"annexG", Boolean},
    {"annexH", Boolean},
    kExtensible,
});

inline constexpr Sequence VBDCapability({
    {"type", AudioCapability},
    kExtensible,
});

inline constexpr Sequence NoPTAudioTelephonyEventCapability({
    {"audioTelephoneEvent", GeneralString},
    kExtensible,
});

inline constexpr EmptySequence NoPTAudioToneCapability(true);

inline constexpr Sequence ExtendedAudioCapability({
    {"audioCapability", SequenceOf<AudioCapability>},
    {"audioCapabilityExtension", SequenceOf<GenericCapability>, kOptional},
    kExtensible,
});

inline constexpr Sequence AudioCapability_g7231({
    {"maxAl_sduAudioFrames", Integer<1, 256>},
    {"silenceSuppression", Boolean},
});

inline constexpr Choice<27> AudioCapability({
    {"nonStandard", NonStandardParameter},
    {"g711Alaw64k", Integer<1, 256>},
    {"g711Alaw56k", Integer<1, 256>},
    {"g711Ulaw64k", Integer<1, 256>},
    {"g711Ulaw56k", Integer<1, 256>},
    {"g722_64k", Integer<1, 256>},
    {"g722_56k", Integer<1, 256>},
    {"g722_48k", Integer<1, 256>},
    {"g7231", AudioCapability_g7231},
    {"g728", Integer<1, 256>},
    {"g729", Integer<1, 256>},
    {"g729AnnexA", Integer<1, 256>},
    {"is11172AudioCapability", IS11172AudioCapability},
    {"is13818AudioCapability", IS13818AudioCapability},
    kExtensible,
    {"g729wAnnexB", Integer<1, 256>},
    {"g729AnnexAwAnnexB", Integer<1, 256>},
    {"g7231AnnexCCapability", G7231AnnexCCapability},
    {"gsmFullRate", GSMAudioCapability},
    {"gsmHalfRate", GSMAudioCapability},
    {"gsmEnhancedFullRate", GSMAudioCapability},
    {"genericAudioCapability", GenericCapability},
    {"g729Extensions", G729Extensions},
    {"vbd", VBDCapability},
    {"audioTelephonyEvent", NoPTAudioTelephonyEventCapability},
    {"audioTone", NoPTAudioToneCapability},
    {"extendedAudioCapability", ExtendedAudioCapability},
});

inline constexpr Sequence ConferenceCapability({
    {"nonStandardData", SequenceOf<NonStandardParameter>, kOptional},
    {"chairControlCapability", Boolean},
    kExtensible,
    {"videoIndicateMixingCapability", Boolean},
    {"multipointVisualizationCapability", Boolean, kOptional},
});

inline constexpr Choice MediaEncryptionAlgorithm({
    {"nonStandard", NonStandardParameter},
    {"algorithm", ObjectIdentifier},
    kExtensible,
});

inline constexpr const auto& EncryptionCapability = SequenceOf<MediaEncryptionAlgorithm, 1, 256>;

inline constexpr Sequence AuthenticationCapability({
    {"nonStandard", NonStandardParameter, kOptional},
    kExtensible,
    {"antiSpamAlgorithm", ObjectIdentifier, kOptional},
});

inline constexpr Sequence IntegrityCapability({
    {"nonStandard", NonStandardParameter, kOptional},
    kExtensible,
});

inline constexpr Sequence DTLSSecurityCapability({
    {"hashFunction", SequenceOf<IA5String<1, 65535>>},
    {"setupInformation", IA5String<1, 65535>, kOptional},
    {"connectionInformation", IA5String<1, 65535>, kOptional},
    {"fingerprint", IA5String<1, 65535>, kOptional},
    kExtensible,
});

inline constexpr Sequence EncryptionAuthenticationAndIntegrity({
    {"encryptionCapability", EncryptionCapability, kOptional},
    {"authenticationCapability", AuthenticationCapability, kOptional},
    {"integrityCapability", IntegrityCapability, kOptional},
    kExtensible,
    {"genericH235SecurityCapability", GenericCapability, kOptional},
    {"dtlsSecurityCapability", DTLSSecurityCapability, kOptional},
});

inline constexpr Sequence H235SecurityCapability({
    {"encryptionAuthenticationAndIntegrity", EncryptionAuthenticationAndIntegrity},
    {"mediaCapability", CapabilityTableEntryNumber},
    kExtensible,
});

inline constexpr Choice UserInputCapability({
    {"nonStandard", SequenceOf<NonStandardParameter, 1, 16>},
    {"basicString", Null},
    {"iA5String", Null},
    {"generalString", Null},
    {"dtmf", Null},
    {"hookflash", Null},
    kExtensible,
    {"extendedAlphanumeric", Null},
    {"encryptedBasicString", Null},
    {"encryptedIA5String", Null},
    {"encryptedGeneralString", Null},
    {"secureDTMF", Null},
    {"genericUserInputCapability", GenericCapability},
});

inline constexpr Choice MultiplexFormat({
    {"nonStandard", NonStandardParameter},
    {"h222Capability", H222Capability},
    {"h223Capability", H223Capability},
    kExtensible,
});

inline constexpr const auto& AlternativeCapabilitySet = SequenceOf<CapabilityTableEntryNumber, 1, 256>;

inline constexpr Sequence MultiplexedStreamCapability({
    {"multiplexFormat", MultiplexFormat},
    {"controlOnMuxStream", Boolean},
    {"capabilityOnMuxStream", SequenceOf<AlternativeCapabilitySet, 1, 256>, kOptional},
    kExtensible,
});

inline constexpr Sequence AudioTelephonyEventCapability({
    {"dynamicRTPPayloadType", Integer<96, 127>},
    {"audioTelephoneEvent", GeneralString},
    kExtensible,
});

inline constexpr Sequence AudioToneCapability({
    {"dynamicRTPPayloadType", Integer<96, 127>},
    kExtensible,
});

inline constexpr Sequence DepFECCapability_rfc2733_separateStream({
    {"separatePort", Boolean},
    {"samePort", Boolean},
    kExtensible,
});

inline constexpr Sequence DepFECCapability_rfc2733({
    {"redundancyEncoding", Boolean},
    {"separateStream", DepFECCapability_rfc2733_separateStream},
    kExtensible,
});

inline constexpr Choice DepFECCapability({
    {"rfc2733", DepFECCapability_rfc2733},
    kExtensible,
});

inline constexpr Sequence MultiplePayloadStreamCapability({
    {"capabilities", SequenceOf<AlternativeCapabilitySet, 1, 256>},
    kExtensible,
});

inline constexpr const auto& MaxRedundancy = Integer<1, kMax>;

inline constexpr Choice FECCapability_rfc2733Format({
    {"rfc2733rfc2198", MaxRedundancy},
    {"rfc2733sameport", MaxRedundancy},
    {"rfc2733diffport", MaxRedundancy},
});

inline constexpr Sequence FECCapability({
    {"protectedCapability", CapabilityTableEntryNumber},
    {"fecScheme", ObjectIdentifier, kOptional},
    {"rfc2733Format", FECCapability_rfc2733Format, kOptional},
    kExtensible,
});

inline constexpr Sequence Capability_h233EncryptionReceiveCapability({
    {"h233IVResponseTime", Integer<0, 255>},
    kExtensible,
});

inline constexpr Choice Capability({
    {"nonStandard", NonStandardParameter},
    {"receiveVideoCapability", VideoCapability},
    {"transmitVideoCapability", VideoCapability},
    {"receiveAndTransmitVideoCapability", VideoCapability},
    {"receiveAudioCapability", AudioCapability},
    {"transmitAudioCapability", AudioCapability},
    {"receiveAndTransmitAudioCapability", AudioCapability},
    {"receiveDataApplicationCapability", DataApplicationCapability},
    {"transmitDataApplicationCapability", DataApplicationCapability},
    {"receiveAndTransmitDataApplicationCapability", DataApplicationCapability},
    {"h233EncryptionTransmitCapability", Boolean},
    {"h233EncryptionReceiveCapability", Capability_h233EncryptionReceiveCapability},
    kExtensible,
    {"conferenceCapability", ConferenceCapability},
    {"h235SecurityCapability", H235SecurityCapability},
    {"maxPendingReplacementFor", Integer<0, 255>},
    {"receiveUserInputCapability", UserInputCapability},
    {"transmitUserInputCapability", UserInputCapability},
    {"receiveAndTransmitUserInputCapability", UserInputCapability},
    {"genericControlCapability", GenericCapability},
    {"receiveMultiplexedStreamCapability", MultiplexedStreamCapability},
    {"transmitMultiplexedStreamCapability", MultiplexedStreamCapability},
    {"receiveAndTransmitMultiplexedStreamCapability", MultiplexedStreamCapability},
    {"receiveRTPAudioTelephonyEventCapability", AudioTelephonyEventCapability},
    {"receiveRTPAudioToneCapability", AudioToneCapability},
    {"depFecCapability", DepFECCapability},
    {"multiplePayloadStreamCapability", MultiplePayloadStreamCapability},
    {"fecCapability", FECCapability},
    {"redundancyEncodingCap", RedundancyEncodingCapability},
    {"oneOfCapabilities", AlternativeCapabilitySet},
});

inline constexpr Sequence CapabilityTableEntry({
    {"capabilityTableEntryNumber", CapabilityTableEntryNumber},
    {"capability", Capability, kOptional},
});

inline constexpr const auto& CapabilityDescriptorNumber = Integer<0, 255>;

inline constexpr Sequence CapabilityDescriptor({
    {"capabilityDescriptorNumber", CapabilityDescriptorNumber},
    {"simultaneousCapabilities", SequenceOf<AlternativeCapabilitySet, 1, 256>, kOptional},
});

inline constexpr Sequence TerminalCapabilitySet({
    {"sequenceNumber", SequenceNumber},
    {"protocolIdentifier", ObjectIdentifier},
    {"multiplexCapability", MultiplexCapability, kOptional},
    {"capabilityTable", SequenceOf<CapabilityTableEntry, 1, 256>, kOptional},
    {"capabilityDescriptors", SequenceOf<CapabilityDescriptor, 1, 256>, kOptional},
    kExtensible,
    {"genericInformation", SequenceOf<GenericInformation>, kOptional},
});

inline constexpr const auto& LogicalChannelNumber = Integer<1, 65535>;

inline constexpr Choice EncryptionMode({
    {"nonStandard", NonStandardParameter},
    {"h233Encryption", Null},
    kExtensible,
});

inline constexpr Sequence RedundancyEncodingElement({
    {"dataType", DataType},
    {"payloadType", Integer<0, 127>, kOptional},
    kExtensible,
});

inline constexpr Sequence RedundancyEncoding_rtpRedundancyEncoding({
    {"primary", RedundancyEncodingElement, kOptional},
    {"secondary", SequenceOf<RedundancyEncodingElement>, kOptional},
    kExtensible,
});

inline constexpr Sequence RedundancyEncoding({
    {"redundancyEncodingMethod", RedundancyEncodingMethod},
    {"secondaryEncoding", DataType, kOptional},
    kExtensible,
    {"rtpRedundancyEncoding", RedundancyEncoding_rtpRedundancyEncoding, kOptional},
});

inline constexpr Sequence MultiplePayloadStreamElement({
    {"dataType", DataType},
    {"payloadType", Integer<0, 127>, kOptional},
    kExtensible,
});

inline constexpr Sequence MultiplePayloadStream({
    {"elements", SequenceOf<MultiplePayloadStreamElement>},
    kExtensible,
});

inline constexpr Sequence DepFECData_rfc2733_mode_separateStream_differentPort({
    {"protectedSessionID", Integer<1, 255>},
    {"protectedPayloadType", Integer<0, 127>, kOptional},
    kExtensible,
});

inline constexpr Sequence DepFECData_rfc2733_mode_separateStream_samePort({
    {"protectedPayloadType", Integer<0, 127>},
    kExtensible,
});

inline constexpr Choice DepFECData_rfc2733_mode_separateStream({
    {"differentPort", DepFECData_rfc2733_mode_separateStream_differentPort},
    {"samePort", DepFECData_rfc2733_mode_separateStream_samePort},
    kExtensible,
});

inline constexpr Choice DepFECData_rfc2733_mode({
    {"redundancyEncoding", Null},
    {"separateStream", DepFECData_rfc2733_mode_separateStream},
    kExtensible,
});

inline constexpr Sequence DepFECData_rfc2733({
    {"mode", DepFECData_rfc2733_mode},
    kExtensible,
});

inline constexpr Choice DepFECData({
    {"rfc2733", DepFECData_rfc2733},
});

inline constexpr EmptySequence FECData_rfc2733_pktMode_rfc2733sameport(true);

inline constexpr Sequence FECData_rfc2733_pktMode_rfc2733diffport({
    {"protectedChannel", LogicalChannelNumber},
    kExtensible,
});

inline constexpr Choice FECData_rfc2733_pktMode({
    {"rfc2198coding", Null},
    {"rfc2733sameport", FECData_rfc2733_pktMode_rfc2733sameport},
    {"rfc2733diffport", FECData_rfc2733_pktMode_rfc2733diffport},
    kExtensible,
});

inline constexpr Sequence FECData_rfc2733({
    {"protectedPayloadType", Integer<0, 127>},
    {"fecScheme", ObjectIdentifier, kOptional},
    {"pktMode", FECData_rfc2733_pktMode},
    kExtensible,
});

inline constexpr Choice FECData({
    {"rfc2733", FECData_rfc2733},
    kExtensible,
});

inline constexpr Choice H235Media_mediaType({
    {"nonStandard", NonStandardParameter},
    {"videoData", VideoCapability},
    {"audioData", AudioCapability},
    {"data", DataApplicationCapability},
    kExtensible,
    {"redundancyEncoding", RedundancyEncoding},
    {"multiplePayloadStream", MultiplePayloadStream},
    {"depFec", DepFECData},
    {"fec", FECData},
});

inline constexpr Sequence H235Media({
    {"encryptionAuthenticationAndIntegrity", EncryptionAuthenticationAndIntegrity},
    {"mediaType", H235Media_mediaType},
    kExtensible,
});

inline constexpr Sequence MultiplexedStreamParameter({
    {"multiplexFormat", MultiplexFormat},
    {"controlOnMuxStream", Boolean},
    kExtensible,
});

inline constexpr Choice<14> DataType({
    {"nonStandard", NonStandardParameter},
    {"nullData", Null},
    {"videoData", VideoCapability},
    {"audioData", AudioCapability},
    {"data", DataApplicationCapability},
    {"encryptionData", EncryptionMode},
    kExtensible,
    {"h235Control", NonStandardParameter},
    {"h235Media", H235Media},
    {"multiplexedStream", MultiplexedStreamParameter},
    {"redundancyEncoding", RedundancyEncoding},
    {"multiplePayloadStream", MultiplePayloadStream},
    {"depFec", DepFECData},
    {"fec", FECData},
});

inline constexpr Sequence H222LogicalChannelParameters({
    {"resourceID", Integer<0, 65535>},
    {"subChannelID", Integer<0, 8191>},
    {"pcr_pid", Integer<0, 8191>, kOptional},
    {"programDescriptors", OctetString<>, kOptional},
    {"streamDescriptors", OctetString<>, kOptional},
    kExtensible,
});

inline constexpr Choice H223AnnexCArqParameters_numberOfRetransmissions({
    {"finite", Integer<0, 16>},
    {"infinite", Null},
    kExtensible,
});

inline constexpr Sequence H223AnnexCArqParameters({
    {"numberOfRetransmissions", H223AnnexCArqParameters_numberOfRetransmissions},
    {"sendBufferSize", Integer<0, 16777215>},
    kExtensible,
});

inline constexpr Choice H223AL1MParameters_transferMode({
    {"framed", Null},
    {"unframed", Null},
    kExtensible,
});

inline constexpr Choice H223AL1MParameters_headerFEC({
    {"sebch16_7", Null},
    {"golay24_12", Null},
    kExtensible,
});

inline constexpr Choice H223AL1MParameters_crcLength({
    {"crc4bit", Null},
    {"crc12bit", Null},
    {"crc20bit", Null},
    {"crc28bit", Null},
    kExtensible,
    {"crc8bit", Null},
    {"crc16bit", Null},
    {"crc32bit", Null},
    {"crcNotUsed", Null},
});

inline constexpr Choice H223AL1MParameters_arqType({
    {"noArq", Null},
    {"typeIArq", H223AnnexCArqParameters},
    {"typeIIArq", H223AnnexCArqParameters},
    kExtensible,
});

inline constexpr Sequence H223AL1MParameters({
    {"transferMode", H223AL1MParameters_transferMode},
    {"headerFEC", H223AL1MParameters_headerFEC},
    {"crcLength", H223AL1MParameters_crcLength},
    {"rcpcCodeRate", Integer<8, 32>},
    {"arqType", H223AL1MParameters_arqType},
    {"alpduInterleaving", Boolean},
    {"alsduSplitting", Boolean},
    kExtensible,
    {"rsCodeCorrection", Integer<0, 127>, kOptional},
});

inline constexpr Choice H223AL2MParameters_headerFEC({
    {"sebch16_5", Null},
    {"golay24_12", Null},
    kExtensible,
});

inline constexpr Sequence H223AL2MParameters({
    {"headerFEC", H223AL2MParameters_headerFEC},
    {"alpduInterleaving", Boolean},
    kExtensible,
});

inline constexpr Choice H223AL3MParameters_headerFormat({
    {"sebch16_7", Null},
    {"golay24_12", Null},
    kExtensible,
});

inline constexpr Choice H223AL3MParameters_crcLength({
    {"crc4bit", Null},
    {"crc12bit", Null},
    {"crc20bit", Null},
    {"crc28bit", Null},
    kExtensible,
    {"crc8bit", Null},
    {"crc16bit", Null},
    {"crc32bit", Null},
    {"crcNotUsed", Null},
});

inline constexpr Choice H223AL3MParameters_arqType({
    {"noArq", Null},
    {"typeIArq", H223AnnexCArqParameters},
    {"typeIIArq", H223AnnexCArqParameters},
    kExtensible,
});

inline constexpr Sequence H223AL3MParameters({
    {"headerFormat", H223AL3MParameters_headerFormat},
    {"crcLength", H223AL3MParameters_crcLength},
    {"rcpcCodeRate", Integer<8, 32>},
    {"arqType", H223AL3MParameters_arqType},
    {"alpduInterleaving", Boolean},
    kExtensible,
    {"rsCodeCorrection", Integer<0, 127>, kOptional},
});

inline constexpr Sequence H223LogicalChannelParameters_adaptationLayerType_al3({
    {"controlFieldOctets", Integer<0, 2>},
    {"sendBufferSize", Integer<0, 16777215>},
});

inline constexpr Choice H223LogicalChannelParameters_adaptationLayerType({
    {"nonStandard", NonStandardParameter},
    {"al1Framed", Null},
    {"al1NotFramed", Null},
    {"al2WithoutSequenceNumbers", Null},
    {"al2WithSequenceNumbers", Null},
    {"al3", H223LogicalChannelParameters_adaptationLayerType_al3},
    kExtensible,
    {"al1M", H223AL1MParameters},
    {"al2M", H223AL2MParameters},
    {"al3M", H223AL3MParameters},
});

inline constexpr Sequence H223LogicalChannelParameters({
    {"adaptationLayerType", H223LogicalChannelParameters_adaptationLayerType},
    {"segmentableFlag", Boolean},
    kExtensible,
});

inline constexpr Choice CRCLength({
    {"crc8bit", Null},
    {"crc16bit", Null},
    {"crc32bit", Null},
    kExtensible,
});

inline constexpr Sequence V76HDLCParameters({
    {"crcLength", CRCLength},
    {"n401", Integer<1, 4095>},
    {"loopbackTestProcedure", Boolean},
    kExtensible,
});

inline constexpr Sequence V75Parameters({
    {"audioHeaderPresent", Boolean},
    kExtensible,
});

inline constexpr Choice V76LogicalChannelParameters_suspendResume({
    {"noSuspendResume", Null},
    {"suspendResumewAddress", Null},
    {"suspendResumewoAddress", Null},
    kExtensible,
});

inline constexpr Choice V76LogicalChannelParameters_mode_eRM_recovery({
    {"rej", Null},
    {"sREJ", Null},
    {"mSREJ", Null},
    kExtensible,
});

inline constexpr Sequence V76LogicalChannelParameters_mode_eRM({
    {"windowSize", Integer<1, 127>},
    {"recovery", V76LogicalChannelParameters_mode_eRM_recovery},
    kExtensible,
});

inline constexpr Choice V76LogicalChannelParameters_mode({
    {"eRM", V76LogicalChannelParameters_mode_eRM},
    {"uNERM", Null},
    kExtensible,
});

inline constexpr Sequence V76LogicalChannelParameters({
    {"hdlcParameters", V76HDLCParameters},
    {"suspendResume", V76LogicalChannelParameters_suspendResume},
    {"uIH", Boolean},
    {"mode", V76LogicalChannelParameters_mode},
    {"v75Parameters", V75Parameters},
    kExtensible,
});

inline constexpr Sequence UnicastAddress_iPAddress({
    {"network", OctetString<4>},
    {"tsapIdentifier", Integer<0, 65535>},
    kExtensible,
});

inline constexpr Sequence UnicastAddress_iPXAddress({
    {"node", OctetString<6>},
    {"netnum", OctetString<4>},
    {"tsapIdentifier", OctetString<2>},
    kExtensible,
});

inline constexpr Sequence UnicastAddress_iP6Address({
    {"network", OctetString<16>},
    {"tsapIdentifier", Integer<0, 65535>},
    kExtensible,
});

inline constexpr Choice UnicastAddress_iPSourceRouteAddress_routing({
    {"strict", Null},
    {"loose", Null},
});

inline constexpr Sequence UnicastAddress_iPSourceRouteAddress({
    {"routing", UnicastAddress_iPSourceRouteAddress_routing},
    {"network", OctetString<4>},
    {"tsapIdentifier", Integer<0, 65535>},
    {"route", SequenceOf<OctetString<4>>},
    kExtensible,
});

inline constexpr Choice UnicastAddress({
    {"iPAddress", UnicastAddress_iPAddress},
    {"iPXAddress", UnicastAddress_iPXAddress},
    {"iP6Address", UnicastAddress_iP6Address},
    {"netBios", OctetString<16>},
    {"iPSourceRouteAddress", UnicastAddress_iPSourceRouteAddress},
    kExtensible,
    {"nsap", OctetString<1, 20>},
    {"nonStandardAddress", NonStandardParameter},
});

inline constexpr Sequence MulticastAddress_iPAddress({
    {"network", OctetString<4>},
    {"tsapIdentifier", Integer<0, 65535>},
    kExtensible,
});

inline constexpr Sequence MulticastAddress_iP6Address({
    {"network", OctetString<16>},
    {"tsapIdentifier", Integer<0, 65535>},
    kExtensible,
});

inline constexpr Choice MulticastAddress({
    {"iPAddress", MulticastAddress_iPAddress},
    {"iP6Address", MulticastAddress_iP6Address},
    kExtensible,
    {"nsap", OctetString<1, 20>},
    {"nonStandardAddress", NonStandardParameter},
});

inline constexpr Choice TransportAddress({
    {"unicastAddress", UnicastAddress},
    {"multicastAddress", MulticastAddress},
    kExtensible,
});

inline constexpr const auto& McuNumber = Integer<0, 192>;
inline constexpr const auto& TerminalNumber = Integer<0, 192>;

inline constexpr Sequence TerminalLabel({
    {"mcuNumber", McuNumber},
    {"terminalNumber", TerminalNumber},
    kExtensible,
});

inline constexpr Choice H2250LogicalChannelParameters_mediaPacketization({
    {"h261aVideoPacketization", Null},
    kExtensible,
    {"rtpPayloadType", RTPPayloadType},
});

inline constexpr Sequence H2250LogicalChannelParameters({
    {"nonStandard", SequenceOf<NonStandardParameter>, kOptional},
    {"sessionID", Integer<0, 255>},
    {"associatedSessionID", Integer<1, 255>, kOptional},
    {"mediaChannel", TransportAddress, kOptional},
    {"mediaGuaranteedDelivery", Boolean, kOptional},
    {"mediaControlChannel", TransportAddress, kOptional},
    {"mediaControlGuaranteedDelivery", Boolean, kOptional},
    {"silenceSuppression", Boolean, kOptional},
    {"destination", TerminalLabel, kOptional},
    {"dynamicRTPPayloadType", Integer<96, 127>, kOptional},
    {"mediaPacketization", H2250LogicalChannelParameters_mediaPacketization, kOptional},
    kExtensible,
    {"transportCapability", TransportCapability, kOptional},
    {"redundancyEncoding", RedundancyEncoding, kOptional},
    {"source", TerminalLabel, kOptional},
    {"nominalAudioLevel", Integer<0, 63>, kOptional},
});

inline constexpr Choice NetworkAccessParameters_distribution({
    {"unicast", Null},
    {"multicast", Null},
    kExtensible,
});

inline constexpr Choice NetworkAccessParameters_networkAddress({
    {"q2931Address", Q2931Address},
    {"e164Address", IA5StringFrom<kDialedDigits, 1, 128>},
    {"localAreaAddress", TransportAddress},
    kExtensible,
});

inline constexpr Choice NetworkAccessParameters_t120SetupProcedure({
    {"originateCall", Null},
    {"waitForCall", Null},
    {"issueQuery", Null},
    kExtensible,
});

inline constexpr Sequence NetworkAccessParameters({
    {"distribution", NetworkAccessParameters_distribution, kOptional},
    {"networkAddress", NetworkAccessParameters_networkAddress},
    {"associateConference", Boolean},
    {"externalReference", OctetString<1, 255>, kOptional},
    kExtensible,
    {"t120SetupProcedure", NetworkAccessParameters_t120SetupProcedure, kOptional},
});

inline constexpr Sequence EscrowData({
    {"escrowID", ObjectIdentifier},
    {"escrowValue", BitString<1, 65535>},
    kExtensible,
});

inline constexpr Sequence EncryptionSync({
    {"nonStandard", NonStandardParameter, kOptional},
    {"synchFlag", Integer<0, 255>},
    {"h235Key", OctetString<1, 65535>},
    {"escrowentry", SequenceOf<EscrowData, 1, 256>, kOptional},
    kExtensible,
    {"genericParameter", GenericParameter, kOptional},
});

inline constexpr Choice OpenLogicalChannel_forwardLogicalChannelParameters_multiplexParameters({
    {"h222LogicalChannelParameters", H222LogicalChannelParameters},
    {"h223LogicalChannelParameters", H223LogicalChannelParameters},
    {"v76LogicalChannelParameters", V76LogicalChannelParameters},
    kExtensible,
    {"h2250LogicalChannelParameters", H2250LogicalChannelParameters},
    {"none", Null},
});

inline constexpr Sequence OpenLogicalChannel_forwardLogicalChannelParameters({
    {"portNumber", Integer<0, 65535>, kOptional},
    {"dataType", DataType},
    {"multiplexParameters", OpenLogicalChannel_forwardLogicalChannelParameters_multiplexParameters},
    kExtensible,
    {"forwardLogicalChannelDependency", LogicalChannelNumber, kOptional},
    {"replacementFor", LogicalChannelNumber, kOptional},
});

inline constexpr Choice OpenLogicalChannel_reverseLogicalChannelParameters_multiplexParameters({
    {"h223LogicalChannelParameters", H223LogicalChannelParameters},
    {"v76LogicalChannelParameters", V76LogicalChannelParameters},
    kExtensible,
    {"h2250LogicalChannelParameters", H2250LogicalChannelParameters},
});

inline constexpr Sequence OpenLogicalChannel_reverseLogicalChannelParameters({
    {"dataType", DataType},
    {"multiplexParameters", OpenLogicalChannel_reverseLogicalChannelParameters_multiplexParameters, kOptional},
    kExtensible,
    {"reverseLogicalChannelDependency", LogicalChannelNumber, kOptional},
    {"replacementFor", LogicalChannelNumber, kOptional},
});

inline constexpr Sequence OpenLogicalChannel({
    {"forwardLogicalChannelNumber", LogicalChannelNumber},
    {"forwardLogicalChannelParameters", OpenLogicalChannel_forwardLogicalChannelParameters},
    {"reverseLogicalChannelParameters", OpenLogicalChannel_reverseLogicalChannelParameters, kOptional},
    kExtensible,
    {"separateStack", NetworkAccessParameters, kOptional},
    {"encryptionSync", EncryptionSync, kOptional},
    {"genericInformation", SequenceOf<GenericInformation>, kOptional},
});

inline constexpr Choice CloseLogicalChannel_source({
    {"user", Null},
    {"lcse", Null},
});

inline constexpr Choice CloseLogicalChannel_reason({
    {"unknown", Null},
    {"reopen", Null},
    {"reservationFailure", Null},
    kExtensible,
    {"networkErrorCode", Integer<0, 255>},
});

inline constexpr Sequence CloseLogicalChannel({
    {"forwardLogicalChannelNumber", LogicalChannelNumber},
    {"source", CloseLogicalChannel_source},
    kExtensible,
    {"reason", CloseLogicalChannel_reason},
});

inline constexpr Choice RequestChannelClose_reason({
    {"unknown", Null},
    {"normal", Null},
    {"reopen", Null},
    {"reservationFailure", Null},
    kExtensible,
    {"networkErrorCode", Integer<0, 255>},
});

inline constexpr Sequence RequestChannelClose({
    {"forwardLogicalChannelNumber", LogicalChannelNumber},
    kExtensible,
    {"qosCapability", QOSCapability, kOptional},
    {"reason", RequestChannelClose_reason},
});

inline constexpr const auto& MultiplexTableEntryNumber = Integer<1, 15>;

inline constexpr Choice MultiplexElement_type({
    {"logicalChannelNumber", Integer<0, 65535>},
    {"subElementList", SequenceOf<MultiplexElement, 2, 255>},
});

inline constexpr Choice MultiplexElement_repeatCount({
    {"finite", Integer<1, 65535>},
    {"untilClosingFlag", Null},
});

inline constexpr Sequence<2> MultiplexElement({
    {"type", MultiplexElement_type},
    {"repeatCount", MultiplexElement_repeatCount},
});

inline constexpr Sequence MultiplexEntryDescriptor({
    {"multiplexTableEntryNumber", MultiplexTableEntryNumber},
    {"elementList", SequenceOf<MultiplexElement, 1, 256>, kOptional},
});

inline constexpr Sequence MultiplexEntrySend({
    {"sequenceNumber", SequenceNumber},
    {"multiplexEntryDescriptors", SequenceOf<MultiplexEntryDescriptor, 1, 15>},
    kExtensible,
});

inline constexpr Sequence RequestMultiplexEntry({
    {"entryNumbers", SequenceOf<MultiplexTableEntryNumber, 1, 15>},
    kExtensible,
});

inline constexpr Choice H261VideoMode_resolution({
    {"qcif", Null},
    {"cif", Null},
});

inline constexpr Sequence H261VideoMode({
    {"resolution", H261VideoMode_resolution},
    {"bitRate", Integer<1, 19200>},
    {"stillImageTransmission", Boolean},
    kExtensible,
});

inline constexpr Choice H262VideoMode_profileAndLevel({
    {"profileAndLevel_SPatML", Null},
    {"profileAndLevel_MPatLL", Null},
    {"profileAndLevel_MPatML", Null},
    {"profileAndLevel_MPatH_14", Null},
    {"profileAndLevel_MPatHL", Null},
    {"profileAndLevel_SNRatLL", Null},
    {"profileAndLevel_SNRatML", Null},
    {"profileAndLevel_SpatialatH_14", Null},
    {"profileAndLevel_HPatML", Null},
    {"profileAndLevel_HPatH_14", Null},
    {"profileAndLevel_HPatHL", Null},
    kExtensible,
});

inline constexpr Sequence H262VideoMode({
    {"profileAndLevel", H262VideoMode_profileAndLevel},
    {"videoBitRate", Integer<0, 1073741823>, kOptional},
    {"vbvBufferSize", Integer<0, 262143>, kOptional},
    {"samplesPerLine", Integer<0, 16383>, kOptional},
    {"linesPerFrame", Integer<0, 16383>, kOptional},
    {"framesPerSecond", Integer<0, 15>, kOptional},
    {"luminanceSampleRate", Integer<0, 4294967295>, kOptional},
    kExtensible,
});

inline constexpr Choice H263VideoMode_resolution({
    {"sqcif", Null},
    {"qcif", Null},
    {"cif", Null},
    {"cif4", Null},
    {"cif16", Null},
    kExtensible,
    {"custom", Null},
});

inline constexpr Sequence H263VideoMode({
    {"resolution", H263VideoMode_resolution},
    {"bitRate", Integer<1, 19200>},
    {"unrestrictedVector", Boolean},
    {"arithmeticCoding", Boolean},
    {"advancedPrediction", Boolean},
    {"pbFrames", Boolean},
    kExtensible,
    {"errorCompensation", Boolean},
    {"enhancementLayerInfo", EnhancementLayerInfo, kOptional},
    {"h263Options", H263Options, kOptional},
});

inline constexpr Sequence IS11172VideoMode({
    {"constrainedBitstream", Boolean},
    {"videoBitRate", Integer<0, 1073741823>, kOptional},
    {"vbvBufferSize", Integer<0, 262143>, kOptional},
    {"samplesPerLine", Integer<0, 16383>, kOptional},
    {"linesPerFrame", Integer<0, 16383>, kOptional},
    {"pictureRate", Integer<0, 15>, kOptional},
    {"luminanceSampleRate", Integer<0, 4294967295>, kOptional},
    kExtensible,
});

inline constexpr Choice VideoMode({
    {"nonStandard", NonStandardParameter},
    {"h261VideoMode", H261VideoMode},
    {"h262VideoMode", H262VideoMode},
    {"h263VideoMode", H263VideoMode},
    {"is11172VideoMode", IS11172VideoMode},
    kExtensible,
    {"genericVideoMode", GenericCapability},
});

inline constexpr Choice IS11172AudioMode_audioLayer({
    {"audioLayer1", Null},
    {"audioLayer2", Null},
    {"audioLayer3", Null},
});

inline constexpr Choice IS11172AudioMode_audioSampling({
    {"audioSampling32k", Null},
    {"audioSampling44k1", Null},
    {"audioSampling48k", Null},
});

inline constexpr Choice IS11172AudioMode_multichannelType({
    {"singleChannel", Null},
    {"twoChannelStereo", Null},
    {"twoChannelDual", Null},
});

inline constexpr Sequence IS11172AudioMode({
    {"audioLayer", IS11172AudioMode_audioLayer},
    {"audioSampling", IS11172AudioMode_audioSampling},
    {"multichannelType", IS11172AudioMode_multichannelType},
    {"bitRate", Integer<1, 448>},
    kExtensible,
});

inline constexpr Choice IS13818AudioMode_audioLayer({
    {"audioLayer1", Null},
    {"audioLayer2", Null},
    {"audioLayer3", Null},
});

inline constexpr Choice IS13818AudioMode_audioSampling({
    {"audioSampling16k", Null},
    {"audioSampling22k05", Null},
    {"audioSampling24k", Null},
    {"audioSampling32k", Null},
    {"audioSampling44k1", Null},
    {"audioSampling48k", Null},
});

inline constexpr Choice IS13818AudioMode_multichannelType({
    {"singleChannel", Null},
    {"twoChannelStereo", Null},
    {"twoChannelDual", Null},
    {"threeChannels2_1", Null},
    {"threeChannels3_0", Null},
    {"fourChannels2_0_2_0", Null},
    {"fourChannels2_2", Null},
    {"fourChannels3_1", Null},
    {"fiveChannels3_0_2_0", Null},
    {"fiveChannels3_2", Null},
});

inline constexpr Sequence IS13818AudioMode({
    {"audioLayer", IS13818AudioMode_audioLayer},
    {"audioSampling", IS13818AudioMode_audioSampling},
    {"multichannelType", IS13818AudioMode_multichannelType},
    {"lowFrequencyEnhancement", Boolean},
    {"multilingual", Boolean},
    {"bitRate", Integer<1, 1130>},
    kExtensible,
});

inline constexpr Sequence G7231AnnexCMode_g723AnnexCAudioMode({
    {"highRateMode0", Integer<27, 78>},
    {"highRateMode1", Integer<27, 78>},
    {"lowRateMode0", Integer<23, 66>},
    {"lowRateMode1", Integer<23, 66>},
    {"sidMode0", Integer<6, 17>},
    {"sidMode1", Integer<6, 17>},
    kExtensible,
});

inline constexpr Sequence G7231AnnexCMode({
    {"maxAl_sduAudioFrames", Integer<1, 256>},
    {"silenceSuppression", Boolean},
    {"g723AnnexCAudioMode", G7231AnnexCMode_g723AnnexCAudioMode},
    kExtensible,
});

inline constexpr Sequence VBDMode({
    {"type", AudioMode},
    kExtensible,
});

inline constexpr Choice AudioMode_g7231({
    {"noSilenceSuppressionLowRate", Null},
    {"noSilenceSuppressionHighRate", Null},
    {"silenceSuppressionLowRate", Null},
    {"silenceSuppressionHighRate", Null},
});

inline constexpr Choice<24> AudioMode({
    {"nonStandard", NonStandardParameter},
    {"g711Alaw64k", Null},
    {"g711Alaw56k", Null},
    {"g711Ulaw64k", Null},
    {"g711Ulaw56k", Null},
    {"g722_64k", Null},
    {"g722_56k", Null},
    {"g722_48k", Null},
    {"g728", Null},
    {"g729", Null},
    {"g729AnnexA", Null},
    {"g7231", AudioMode_g7231},
    {"is11172AudioMode", IS11172AudioMode},
    {"is13818AudioMode", IS13818AudioMode},
    kExtensible,
    {"g729wAnnexB", Integer<1, 256>},
    {"g729AnnexAwAnnexB", Integer<1, 256>},
    {"g7231AnnexCMode", G7231AnnexCMode},
    {"gsmFullRate", GSMAudioCapability},
    {"gsmHalfRate", GSMAudioCapability},
    {"gsmEnhancedFullRate", GSMAudioCapability},
    {"genericAudioMode", GenericCapability},
    {"g729Extensions", G729Extensions},
    {"vbd", VBDMode},
});

inline constexpr Sequence DataMode_application_nlpid({
    {"nlpidProtocol", DataProtocolCapability},
    {"nlpidData", OctetString<>},
});

inline constexpr Sequence DataMode_application_t38fax({
    {"t38FaxProtocol", DataProtocolCapability},
    {"t38FaxProfile", T38FaxProfile},
});

inline constexpr Choice DataMode_application({
    {"nonStandard", NonStandardParameter},
    {"t120", DataProtocolCapability},
    {"dsm_cc", DataProtocolCapability},
    {"userData", DataProtocolCapability},
    {"t84", DataProtocolCapability},
    {"t434", DataProtocolCapability},
    {"h224", DataProtocolCapability},
    {"nlpid", DataMode_application_nlpid},
    {"dsvdControl", Null},
    {"h222DataPartitioning", DataProtocolCapability},
    kExtensible,
    {"t30fax", DataProtocolCapability},
    {"t140", DataProtocolCapability},
    {"t38fax", DataMode_application_t38fax},
    {"genericDataMode", GenericCapability},
    {"dataChannel", DataChannel},
});

inline constexpr Sequence DataMode({
    {"application", DataMode_application},
    {"bitRate", Integer<0, 4294967295>},
    kExtensible,
});

inline constexpr Choice H235Mode_mediaMode({
    {"nonStandard", NonStandardParameter},
    {"videoMode", VideoMode},
    {"audioMode", AudioMode},
    {"dataMode", DataMode},
    kExtensible,
});

inline constexpr Sequence H235Mode({
    {"encryptionAuthenticationAndIntegrity", EncryptionAuthenticationAndIntegrity},
    {"mediaMode", H235Mode_mediaMode},
    kExtensible,
});

inline constexpr Choice FECMode_rfc2733Format({
    {"rfc2733rfc2198", MaxRedundancy},
    {"rfc2733sameport", MaxRedundancy},
    {"rfc2733diffport", MaxRedundancy},
});

inline constexpr Sequence FECMode({
    {"protectedElement", ModeElementType},
    {"fecScheme", ObjectIdentifier, kOptional},
    {"rfc2733Format", FECMode_rfc2733Format, kOptional},
    kExtensible,
});

inline constexpr Choice RedundancyEncodingDTModeElement_type({
    {"nonStandard", NonStandardParameter},
    {"videoMode", VideoMode},
    {"audioMode", AudioMode},
    {"dataMode", DataMode},
    {"encryptionMode", EncryptionMode},
    {"h235Mode", H235Mode},
    kExtensible,
    {"fecMode", FECMode},
});

inline constexpr Sequence RedundancyEncodingDTModeElement({
    {"type", RedundancyEncodingDTModeElement_type},
    kExtensible,
});

inline constexpr Sequence RedundancyEncodingDTMode({
    {"redundancyEncodingMethod", RedundancyEncodingMethod},
    {"primary", RedundancyEncodingDTModeElement},
    {"secondary", SequenceOf<RedundancyEncodingDTModeElement>},
    kExtensible,
});

inline constexpr Sequence MultiplePayloadStreamElementMode({
    {"type", ModeElementType},
    kExtensible,
});

inline constexpr Sequence MultiplePayloadStreamMode({
    {"elements", SequenceOf<MultiplePayloadStreamElementMode>},
    kExtensible,
});

inline constexpr Sequence DepFECMode_rfc2733Mode_mode_separateStream_differentPort({
    {"protectedSessionID", Integer<1, 255>},
    {"protectedPayloadType", Integer<0, 127>, kOptional},
    kExtensible,
});

inline constexpr Sequence DepFECMode_rfc2733Mode_mode_separateStream_samePort({
    {"protectedType", ModeElementType},
    kExtensible,
});

inline constexpr Choice DepFECMode_rfc2733Mode_mode_separateStream({
    {"differentPort", DepFECMode_rfc2733Mode_mode_separateStream_differentPort},
    {"samePort", DepFECMode_rfc2733Mode_mode_separateStream_samePort},
    kExtensible,
});

inline constexpr Choice DepFECMode_rfc2733Mode_mode({
    {"redundancyEncoding", Null},
    {"separateStream", DepFECMode_rfc2733Mode_mode_separateStream},
    kExtensible,
});

inline constexpr Sequence DepFECMode_rfc2733Mode({
    {"mode", DepFECMode_rfc2733Mode_mode},
    kExtensible,
});

inline constexpr Choice DepFECMode({
    {"rfc2733Mode", DepFECMode_rfc2733Mode},
    kExtensible,
});

inline constexpr Choice<12> ModeElementType({
    {"nonStandard", NonStandardParameter},
    {"videoMode", VideoMode},
    {"audioMode", AudioMode},
    {"dataMode", DataMode},
    {"encryptionMode", EncryptionMode},
    kExtensible,
    {"h235Mode", H235Mode},
    {"multiplexedStreamMode", MultiplexedStreamParameter},
    {"redundancyEncodingDTMode", RedundancyEncodingDTMode},
    {"multiplePayloadStreamMode", MultiplePayloadStreamMode},
    {"depFecMode", DepFECMode},
    {"fecMode", FECMode},
});

inline constexpr Sequence H223ModeParameters_adaptationLayerType_al3({
    {"controlFieldOctets", Integer<0, 2>},
    {"sendBufferSize", Integer<0, 16777215>},
});

inline constexpr Choice H223ModeParameters_adaptationLayerType({
    {"nonStandard", NonStandardParameter},
    {"al1Framed", Null},
    {"al1NotFramed", Null},
    {"al2WithoutSequenceNumbers", Null},
    {"al2WithSequenceNumbers", Null},
    {"al3", H223ModeParameters_adaptationLayerType_al3},
    kExtensible,
    {"al1M", H223AL1MParameters},
    {"al2M", H223AL2MParameters},
    {"al3M", H223AL3MParameters},
});

inline constexpr Sequence H223ModeParameters({
    {"adaptationLayerType", H223ModeParameters_adaptationLayerType},
    {"segmentableFlag", Boolean},
    kExtensible,
});

inline constexpr Choice V76ModeParameters({
    {"suspendResumewAddress", Null},
    {"suspendResumewoAddress", Null},
    kExtensible,
});

inline constexpr Choice RedundancyEncodingMode_secondaryEncoding({
    {"nonStandard", NonStandardParameter},
    {"audioData", AudioMode},
    kExtensible,
});

inline constexpr Sequence RedundancyEncodingMode({
    {"redundancyEncodingMethod", RedundancyEncodingMethod},
    {"secondaryEncoding", RedundancyEncodingMode_secondaryEncoding, kOptional},
    kExtensible,
});

inline constexpr Sequence H2250ModeParameters({
    {"redundancyEncodingMode", RedundancyEncodingMode, kOptional},
    kExtensible,
});

inline constexpr Sequence MultiplexedStreamModeParameters({
    {"logicalChannelNumber", LogicalChannelNumber},
    kExtensible,
});

inline constexpr Sequence ModeElement({
    {"type", ModeElementType},
    {"h223ModeParameters", H223ModeParameters, kOptional},
    kExtensible,
    {"v76ModeParameters", V76ModeParameters, kOptional},
    {"h2250ModeParameters", H2250ModeParameters, kOptional},
    {"genericModeParameters", GenericCapability, kOptional},
    {"multiplexedStreamModeParameters", MultiplexedStreamModeParameters, kOptional},
    {"logicalChannelNumber", LogicalChannelNumber, kOptional},
});

inline constexpr const auto& ModeDescription = SequenceOf<ModeElement, 1, 256>;

inline constexpr Sequence RequestMode({
    {"sequenceNumber", SequenceNumber},
    {"requestedModes", SequenceOf<ModeDescription, 1, 256>},
    kExtensible,
});

inline constexpr Sequence RoundTripDelayRequest({
    {"sequenceNumber", SequenceNumber},
    kExtensible,
});

inline constexpr Choice MaintenanceLoopRequest_type({
    {"systemLoop", Null},
    {"mediaLoop", LogicalChannelNumber},
    {"logicalChannelLoop", LogicalChannelNumber},
    kExtensible,
});

inline constexpr Sequence MaintenanceLoopRequest({
    {"type", MaintenanceLoopRequest_type},
    kExtensible,
});

inline constexpr EmptySequence CommunicationModeRequest(true);

inline constexpr Sequence Criteria({
    {"field", ObjectIdentifier},
    {"value", OctetString<1, 65535>},
    kExtensible,
});

inline constexpr const auto& CertSelectionCriteria = SequenceOf<Criteria, 1, 16>;

inline constexpr Choice RemoteMCRequest({
    {"masterActivate", Null},
    {"slaveActivate", Null},
    {"deActivate", Null},
    kExtensible,
});

inline constexpr Sequence ConferenceRequest_requestTerminalCertificate({
    {"terminalLabel", TerminalLabel, kOptional},
    {"certSelectionCriteria", CertSelectionCriteria, kOptional},
    {"sRandom", Integer<1, 4294967295>, kOptional},
    kExtensible,
});

inline constexpr Choice ConferenceRequest({
    {"terminalListRequest", Null},
    {"makeMeChair", Null},
    {"cancelMakeMeChair", Null},
    {"dropTerminal", TerminalLabel},
    {"requestTerminalID", TerminalLabel},
    {"enterH243Password", Null},
    {"enterH243TerminalID", Null},
    {"enterH243ConferenceID", Null},
    kExtensible,
    {"enterExtensionAddress", Null},
    {"requestChairTokenOwner", Null},
    {"requestTerminalCertificate", ConferenceRequest_requestTerminalCertificate},
    {"broadcastMyLogicalChannel", LogicalChannelNumber},
    {"makeTerminalBroadcaster", TerminalLabel},
    {"sendThisSource", TerminalLabel},
    {"requestAllTerminalIDs", Null},
    {"remoteMCRequest", RemoteMCRequest},
});

inline constexpr Choice DialingInformationNetworkType({
    {"nonStandard", NonStandardMessage},
    {"n_isdn", Null},
    {"gstn", Null},
    kExtensible,
    {"mobile", Null},
});

inline constexpr Sequence DialingInformationNumber({
    {"networkAddress", NumericString<0, 40>},
    {"subAddress", IA5String<1, 40>, kOptional},
    {"networkType", SequenceOf<DialingInformationNetworkType, 1, 255>},
    kExtensible,
});

inline constexpr Choice DialingInformation({
    {"nonStandard", NonStandardMessage},
    {"differential", SequenceOf<DialingInformationNumber, 1, 65535>},
    {"infoNotAvailable", Integer<1, 65535>},
    kExtensible,
});

inline constexpr Sequence ConnectionIdentifier({
    {"channelTag", Integer<0, 4294967295>},
    {"sequenceNumber", Integer<0, 4294967295>},
    kExtensible,
});

inline constexpr Sequence MultilinkRequest_callInformation({
    {"maxNumberOfAdditionalConnections", Integer<1, 65535>},
    kExtensible,
});

inline constexpr Sequence MultilinkRequest_addConnection({
    {"sequenceNumber", SequenceNumber},
    {"dialingInformation", DialingInformation},
    kExtensible,
});

inline constexpr Sequence MultilinkRequest_removeConnection({
    {"connectionIdentifier", ConnectionIdentifier},
    kExtensible,
});

inline constexpr Choice MultilinkRequest_maximumHeaderInterval_requestType({
    {"currentIntervalInformation", Null},
    {"requestedInterval", Integer<0, 65535>},
    kExtensible,
});

inline constexpr Sequence MultilinkRequest_maximumHeaderInterval({
    {"requestType", MultilinkRequest_maximumHeaderInterval_requestType},
    kExtensible,
});

inline constexpr Choice MultilinkRequest({
    {"nonStandard", NonStandardMessage},
    {"callInformation", MultilinkRequest_callInformation},
    {"addConnection", MultilinkRequest_addConnection},
    {"removeConnection", MultilinkRequest_removeConnection},
    {"maximumHeaderInterval", MultilinkRequest_maximumHeaderInterval},
    kExtensible,
});

inline constexpr const auto& MaximumBitRate = Integer<0, 4294967295>;

inline constexpr Sequence LogicalChannelRateRequest({
    {"sequenceNumber", SequenceNumber},
    {"logicalChannelNumber", LogicalChannelNumber},
    {"maximumBitRate", MaximumBitRate},
    kExtensible,
});

inline constexpr Choice RequestMessage({
    {"nonStandard", NonStandardMessage},
    {"masterSlaveDetermination", MasterSlaveDetermination},
    {"terminalCapabilitySet", TerminalCapabilitySet},
    {"openLogicalChannel", OpenLogicalChannel},
    {"closeLogicalChannel", CloseLogicalChannel},
    {"requestChannelClose", RequestChannelClose},
    {"multiplexEntrySend", MultiplexEntrySend},
    {"requestMultiplexEntry", RequestMultiplexEntry},
    {"requestMode", RequestMode},
    {"roundTripDelayRequest", RoundTripDelayRequest},
    {"maintenanceLoopRequest", MaintenanceLoopRequest},
    kExtensible,
    {"communicationModeRequest", CommunicationModeRequest},
    {"conferenceRequest", ConferenceRequest},
    {"multilinkRequest", MultilinkRequest},
    {"logicalChannelRateRequest", LogicalChannelRateRequest},
    {"genericRequest", GenericMessage},
});

inline constexpr Choice MasterSlaveDeterminationAck_decision({
    {"master", Null},
    {"slave", Null},
});

inline constexpr Sequence MasterSlaveDeterminationAck({
    {"decision", MasterSlaveDeterminationAck_decision},
    kExtensible,
});

inline constexpr Choice MasterSlaveDeterminationReject_cause({
    {"identicalNumbers", Null},
    kExtensible,
});

inline constexpr Sequence MasterSlaveDeterminationReject({
    {"cause", MasterSlaveDeterminationReject_cause},
    kExtensible,
});

inline constexpr Sequence TerminalCapabilitySetAck({
    {"sequenceNumber", SequenceNumber},
    kExtensible,
    {"genericInformation", SequenceOf<GenericInformation>, kOptional},
});

inline constexpr Choice TerminalCapabilitySetReject_cause_tableEntryCapacityExceeded({
    {"highestEntryNumberProcessed", CapabilityTableEntryNumber},
    {"noneProcessed", Null},
});

inline constexpr Choice TerminalCapabilitySetReject_cause({
    {"unspecified", Null},
    {"undefinedTableEntryUsed", Null},
    {"descriptorCapacityExceeded", Null},
    {"tableEntryCapacityExceeded", TerminalCapabilitySetReject_cause_tableEntryCapacityExceeded},
    kExtensible,
});

inline constexpr Sequence TerminalCapabilitySetReject({
    {"sequenceNumber", SequenceNumber},
    {"cause", TerminalCapabilitySetReject_cause},
    kExtensible,
    {"genericInformation", SequenceOf<GenericInformation>, kOptional},
});

inline constexpr Sequence H2250LogicalChannelAckParameters({
    {"nonStandard", SequenceOf<NonStandardParameter>, kOptional},
    {"sessionID", Integer<1, 255>, kOptional},
    {"mediaChannel", TransportAddress, kOptional},
    {"mediaControlChannel", TransportAddress, kOptional},
    {"dynamicRTPPayloadType", Integer<96, 127>, kOptional},
    kExtensible,
    {"flowControlToZero", Boolean},
    {"portNumber", Integer<0, 65535>, kOptional},
    {"multiplePayloadStream", MultiplePayloadStream, kOptional},
});

inline constexpr Choice OpenLogicalChannelAck_reverseLogicalChannelParameters_multiplexParameters({
    {"h222LogicalChannelParameters", H222LogicalChannelParameters},
    kExtensible,
    {"h2250LogicalChannelParameters", H2250LogicalChannelParameters},
});

inline constexpr Sequence OpenLogicalChannelAck_reverseLogicalChannelParameters({
    {"reverseLogicalChannelNumber", LogicalChannelNumber},
    {"portNumber", Integer<0, 65535>, kOptional},
    {"multiplexParameters", OpenLogicalChannelAck_reverseLogicalChannelParameters_multiplexParameters, kOptional},
    kExtensible,
    {"replacementFor", LogicalChannelNumber, kOptional},
});

inline constexpr Choice OpenLogicalChannelAck_forwardMultiplexAckParameters({
    {"h2250LogicalChannelAckParameters", H2250LogicalChannelAckParameters},
    kExtensible,
});

inline constexpr Sequence OpenLogicalChannelAck({
    {"forwardLogicalChannelNumber", LogicalChannelNumber},
    {"reverseLogicalChannelParameters", OpenLogicalChannelAck_reverseLogicalChannelParameters, kOptional},
    kExtensible,
    {"separateStack", NetworkAccessParameters, kOptional},
    {"forwardMultiplexAckParameters", OpenLogicalChannelAck_forwardMultiplexAckParameters, kOptional},
    {"encryptionSync", EncryptionSync, kOptional},
    {"genericInformation", SequenceOf<GenericInformation>, kOptional},
    {"dtlsSecurityCapability", DTLSSecurityCapability, kOptional},
});

inline constexpr Choice OpenLogicalChannelReject_cause({
    {"unspecified", Null},
    {"unsuitableReverseParameters", Null},
    {"dataTypeNotSupported", Null},
    {"dataTypeNotAvailable", Null},
    {"unknownDataType", Null},
    {"dataTypeALCombinationNotSupported", Null},
    kExtensible,
    {"multicastChannelNotAllowed", Null},
    {"insufficientBandwidth", Null},
    {"separateStackEstablishmentFailed", Null},
    {"invalidSessionID", Null},
    {"masterSlaveConflict", Null},
    {"waitForCommunicationMode", Null},
    {"invalidDependentChannel", Null},
    {"replacementForRejected", Null},
    {"securityDenied", Null},
    {"qoSControlNotSupported", Null},
});

inline constexpr Sequence OpenLogicalChannelReject({
    {"forwardLogicalChannelNumber", LogicalChannelNumber},
    {"cause", OpenLogicalChannelReject_cause},
    kExtensible,
    {"genericInformation", SequenceOf<GenericInformation>, kOptional},
});

inline constexpr Sequence CloseLogicalChannelAck({
    {"forwardLogicalChannelNumber", LogicalChannelNumber},
    kExtensible,
});

inline constexpr Sequence RequestChannelCloseAck({
    {"forwardLogicalChannelNumber", LogicalChannelNumber},
    kExtensible,
});

inline constexpr Choice RequestChannelCloseReject_cause({
    {"unspecified", Null},
    kExtensible,
});

inline constexpr Sequence RequestChannelCloseReject({
    {"forwardLogicalChannelNumber", LogicalChannelNumber},
    {"cause", RequestChannelCloseReject_cause},
    kExtensible,
});

inline constexpr Sequence MultiplexEntrySendAck({
    {"sequenceNumber", SequenceNumber},
    {"multiplexTableEntryNumber", SequenceOf<MultiplexTableEntryNumber, 1, 15>},
    kExtensible,
});

inline constexpr Choice MultiplexEntryRejectionDescriptions_cause({
    {"unspecifiedCause", Null},
    {"descriptorTooComplex", Null},
    kExtensible,
});

inline constexpr Sequence MultiplexEntryRejectionDescriptions({
    {"multiplexTableEntryNumber", MultiplexTableEntryNumber},
    {"cause", MultiplexEntryRejectionDescriptions_cause},
    kExtensible,
});

inline constexpr Sequence MultiplexEntrySendReject({
    {"sequenceNumber", SequenceNumber},
    {"rejectionDescriptions", SequenceOf<MultiplexEntryRejectionDescriptions, 1, 15>},
    kExtensible,
});

inline constexpr Sequence RequestMultiplexEntryAck({
    {"entryNumbers", SequenceOf<MultiplexTableEntryNumber, 1, 15>},
    kExtensible,
});

inline constexpr Choice RequestMultiplexEntryRejectionDescriptions_cause({
    {"unspecifiedCause", Null},
    kExtensible,
});

inline constexpr Sequence RequestMultiplexEntryRejectionDescriptions({
    {"multiplexTableEntryNumber", MultiplexTableEntryNumber},
    {"cause", RequestMultiplexEntryRejectionDescriptions_cause},
    kExtensible,
});

inline constexpr Sequence RequestMultiplexEntryReject({
    {"entryNumbers", SequenceOf<MultiplexTableEntryNumber, 1, 15>},
    {"rejectionDescriptions", SequenceOf<RequestMultiplexEntryRejectionDescriptions, 1, 15>},
    kExtensible,
});

inline constexpr Choice RequestModeAck_response({
    {"willTransmitMostPreferredMode", Null},
    {"willTransmitLessPreferredMode", Null},
    kExtensible,
});

inline constexpr Sequence RequestModeAck({
    {"sequenceNumber", SequenceNumber},
    {"response", RequestModeAck_response},
    kExtensible,
});

inline constexpr Choice RequestModeReject_cause({
    {"modeUnavailable", Null},
    {"multipointConstraint", Null},
    {"requestDenied", Null},
    kExtensible,
});

inline constexpr Sequence RequestModeReject({
    {"sequenceNumber", SequenceNumber},
    {"cause", RequestModeReject_cause},
    kExtensible,
});

inline constexpr Sequence RoundTripDelayResponse({
    {"sequenceNumber", SequenceNumber},
    kExtensible,
});

inline constexpr Choice MaintenanceLoopAck_type({
    {"systemLoop", Null},
    {"mediaLoop", LogicalChannelNumber},
    {"logicalChannelLoop", LogicalChannelNumber},
    kExtensible,
});

inline constexpr Sequence MaintenanceLoopAck({
    {"type", MaintenanceLoopAck_type},
    kExtensible,
});

inline constexpr Choice MaintenanceLoopReject_type({
    {"systemLoop", Null},
    {"mediaLoop", LogicalChannelNumber},
    {"logicalChannelLoop", LogicalChannelNumber},
    kExtensible,
});

inline constexpr Choice MaintenanceLoopReject_cause({
    {"canNotPerformLoop", Null},
    kExtensible,
});

inline constexpr Sequence MaintenanceLoopReject({
    {"type", MaintenanceLoopReject_type},
    {"cause", MaintenanceLoopReject_cause},
    kExtensible,
});

inline constexpr Choice CommunicationModeTableEntry_dataType({
    {"videoData", VideoCapability},
    {"audioData", AudioCapability},
    {"data", DataApplicationCapability},
    kExtensible,
});

inline constexpr Sequence CommunicationModeTableEntry({
    {"nonStandard", SequenceOf<NonStandardParameter>, kOptional},
    {"sessionID", Integer<1, 255>},
    {"associatedSessionID", Integer<1, 255>, kOptional},
    {"terminalLabel", TerminalLabel, kOptional},
    {"sessionDescription", BmpString<1, 128>},
    {"dataType", CommunicationModeTableEntry_dataType},
    {"mediaChannel", TransportAddress, kOptional},
    {"mediaGuaranteedDelivery", Boolean, kOptional},
    {"mediaControlChannel", TransportAddress, kOptional},
    {"mediaControlGuaranteedDelivery", Boolean, kOptional},
    kExtensible,
    {"redundancyEncoding", RedundancyEncoding, kOptional},
    {"sessionDependency", Integer<1, 255>, kOptional},
    {"destination", TerminalLabel, kOptional},
});

inline constexpr Choice CommunicationModeResponse({
    {"communicationModeTable", SequenceOf<CommunicationModeTableEntry, 1, 256>},
    kExtensible,
});

inline constexpr const auto& TerminalID = OctetString<1, 128>;
inline constexpr const auto& ConferenceID = OctetString<1, 32>;
inline constexpr const auto& Password = OctetString<1, 32>;

inline constexpr Sequence TerminalInformation({
    {"terminalLabel", TerminalLabel},
    {"terminalID", TerminalID},
    kExtensible,
});

inline constexpr Sequence RequestAllTerminalIDsResponse({
    {"terminalInformation", SequenceOf<TerminalInformation>},
    kExtensible,
});

inline constexpr Choice RemoteMCResponse_reject({
    {"unspecified", Null},
    {"functionNotSupported", Null},
    kExtensible,
});

inline constexpr Choice RemoteMCResponse({
    {"accept", Null},
    {"reject", RemoteMCResponse_reject},
    kExtensible,
});

inline constexpr Sequence ConferenceResponse_mCTerminalIDResponse({
    {"terminalLabel", TerminalLabel},
    {"terminalID", TerminalID},
    kExtensible,
});

inline constexpr Sequence ConferenceResponse_terminalIDResponse({
    {"terminalLabel", TerminalLabel},
    {"terminalID", TerminalID},
    kExtensible,
});

inline constexpr Sequence ConferenceResponse_conferenceIDResponse({
    {"terminalLabel", TerminalLabel},
    {"conferenceID", ConferenceID},
    kExtensible,
});

inline constexpr Sequence ConferenceResponse_passwordResponse({
    {"terminalLabel", TerminalLabel},
    {"password", Password},
    kExtensible,
});

inline constexpr Choice ConferenceResponse_makeMeChairResponse({
    {"grantedChairToken", Null},
    {"deniedChairToken", Null},
    kExtensible,
});

inline constexpr Sequence ConferenceResponse_extensionAddressResponse({
    {"extensionAddress", TerminalID},
    kExtensible,
});

inline constexpr Sequence ConferenceResponse_chairTokenOwnerResponse({
    {"terminalLabel", TerminalLabel},
    {"terminalID", TerminalID},
    kExtensible,
});

inline constexpr Sequence ConferenceResponse_terminalCertificateResponse({
    {"terminalLabel", TerminalLabel, kOptional},
    {"certificateResponse", OctetString<1, 65535>, kOptional},
    kExtensible,
});

inline constexpr Choice ConferenceResponse_broadcastMyLogicalChannelResponse({
    {"grantedBroadcastMyLogicalChannel", Null},
    {"deniedBroadcastMyLogicalChannel", Null},
    kExtensible,
});

inline constexpr Choice ConferenceResponse_makeTerminalBroadcasterResponse({
    {"grantedMakeTerminalBroadcaster", Null},
    {"deniedMakeTerminalBroadcaster", Null},
    kExtensible,
});

inline constexpr Choice ConferenceResponse_sendThisSourceResponse({
    {"grantedSendThisSource", Null},
    {"deniedSendThisSource", Null},
    kExtensible,
});

inline constexpr Choice ConferenceResponse({
    {"mCTerminalIDResponse", ConferenceResponse_mCTerminalIDResponse},
    {"terminalIDResponse", ConferenceResponse_terminalIDResponse},
    {"conferenceIDResponse", ConferenceResponse_conferenceIDResponse},
    {"passwordResponse", ConferenceResponse_passwordResponse},
    {"terminalListResponse", SequenceOf<TerminalLabel, 1, 256>},
    {"videoCommandReject", Null},
    {"terminalDropReject", Null},
    {"makeMeChairResponse", ConferenceResponse_makeMeChairResponse},
    kExtensible,
    {"extensionAddressResponse", ConferenceResponse_extensionAddressResponse},
    {"chairTokenOwnerResponse", ConferenceResponse_chairTokenOwnerResponse},
    {"terminalCertificateResponse", ConferenceResponse_terminalCertificateResponse},
    {"broadcastMyLogicalChannelResponse", ConferenceResponse_broadcastMyLogicalChannelResponse},
    {"makeTerminalBroadcasterResponse", ConferenceResponse_makeTerminalBroadcasterResponse},
    {"sendThisSourceResponse", ConferenceResponse_sendThisSourceResponse},
    {"requestAllTerminalIDsResponse", RequestAllTerminalIDsResponse},
    {"remoteMCResponse", RemoteMCResponse},
});

inline constexpr Sequence MultilinkResponse_callInformation({
    {"dialingInformation", DialingInformation},
    {"callAssociationNumber", Integer<0, 4294967295>},
    kExtensible,
});

inline constexpr Choice MultilinkResponse_addConnection_responseCode_rejected({
    {"connectionsNotAvailable", Null},
    {"userRejected", Null},
    kExtensible,
});

inline constexpr Choice MultilinkResponse_addConnection_responseCode({
    {"accepted", Null},
    {"rejected", MultilinkResponse_addConnection_responseCode_rejected},
    kExtensible,
});

inline constexpr Sequence MultilinkResponse_addConnection({
    {"sequenceNumber", SequenceNumber},
    {"responseCode", MultilinkResponse_addConnection_responseCode},
    kExtensible,
});

inline constexpr Sequence MultilinkResponse_removeConnection({
    {"connectionIdentifier", ConnectionIdentifier},
    kExtensible,
});

inline constexpr Sequence MultilinkResponse_maximumHeaderInterval({
    {"currentInterval", Integer<0, 65535>},
    kExtensible,
});

inline constexpr Choice MultilinkResponse({
    {"nonStandard", NonStandardMessage},
    {"callInformation", MultilinkResponse_callInformation},
    {"addConnection", MultilinkResponse_addConnection},
    {"removeConnection", MultilinkResponse_removeConnection},
    {"maximumHeaderInterval", MultilinkResponse_maximumHeaderInterval},
    kExtensible,
});

inline constexpr Sequence LogicalChannelRateAcknowledge({
    {"sequenceNumber", SequenceNumber},
    {"logicalChannelNumber", LogicalChannelNumber},
    {"maximumBitRate", MaximumBitRate},
    kExtensible,
});

inline constexpr Choice LogicalChannelRateRejectReason({
    {"undefinedReason", Null},
    {"insufficientResources", Null},
    kExtensible,
});

inline constexpr Sequence LogicalChannelRateReject({
    {"sequenceNumber", SequenceNumber},
    {"logicalChannelNumber", LogicalChannelNumber},
    {"rejectReason", LogicalChannelRateRejectReason},
    {"currentMaximumBitRate", MaximumBitRate, kOptional},
    kExtensible,
});

inline constexpr Choice ResponseMessage({
    {"nonStandard", NonStandardMessage},
    {"masterSlaveDeterminationAck", MasterSlaveDeterminationAck},
    {"masterSlaveDeterminationReject", MasterSlaveDeterminationReject},
    {"terminalCapabilitySetAck", TerminalCapabilitySetAck},
    {"terminalCapabilitySetReject", TerminalCapabilitySetReject},
    {"openLogicalChannelAck", OpenLogicalChannelAck},
    {"openLogicalChannelReject", OpenLogicalChannelReject},
    {"closeLogicalChannelAck", CloseLogicalChannelAck},
    {"requestChannelCloseAck", RequestChannelCloseAck},
    {"requestChannelCloseReject", RequestChannelCloseReject},
    {"multiplexEntrySendAck", MultiplexEntrySendAck},
    {"multiplexEntrySendReject", MultiplexEntrySendReject},
    {"requestMultiplexEntryAck", RequestMultiplexEntryAck},
    {"requestMultiplexEntryReject", RequestMultiplexEntryReject},
    {"requestModeAck", RequestModeAck},
    {"requestModeReject", RequestModeReject},
    {"roundTripDelayResponse", RoundTripDelayResponse},
    {"maintenanceLoopAck", MaintenanceLoopAck},
    {"maintenanceLoopReject", MaintenanceLoopReject},
    kExtensible,
    {"communicationModeResponse", CommunicationModeResponse},
    {"conferenceResponse", ConferenceResponse},
    {"multilinkResponse", MultilinkResponse},
    {"logicalChannelRateAcknowledge", LogicalChannelRateAcknowledge},
    {"logicalChannelRateReject", LogicalChannelRateReject},
    {"genericResponse", GenericMessage},
});

inline constexpr EmptySequence MaintenanceLoopOffCommand(true);

inline constexpr Sequence SendTerminalCapabilitySet_specificRequest({
    {"multiplexCapability", Boolean},
    {"capabilityTableEntryNumbers", SequenceOf<CapabilityTableEntryNumber, 1, 65535>, kOptional},
    {"capabilityDescriptorNumbers", SequenceOf<CapabilityDescriptorNumber, 1, 256>, kOptional},
    kExtensible,
});

inline constexpr Choice SendTerminalCapabilitySet({
    {"specificRequest", SendTerminalCapabilitySet_specificRequest},
    {"genericRequest", Null},
    kExtensible,
});

inline constexpr Sequence EncryptionCommand_encryptionAlgorithmID({
    {"h233AlgorithmIdentifier", SequenceNumber},
    {"associatedAlgorithm", NonStandardParameter},
});

inline constexpr Choice EncryptionCommand({
    {"encryptionSE", OctetString<>},
    {"encryptionIVRequest", Null},
    {"encryptionAlgorithmID", EncryptionCommand_encryptionAlgorithmID},
    kExtensible,
});

inline constexpr Choice FlowControlCommand_scope({
    {"logicalChannelNumber", LogicalChannelNumber},
    {"resourceID", Integer<0, 65535>},
    {"wholeMultiplex", Null},
});

inline constexpr Choice FlowControlCommand_restriction({
    {"maximumBitRate", Integer<0, 16777215>},
    {"noRestriction", Null},
});

inline constexpr Sequence FlowControlCommand({
    {"scope", FlowControlCommand_scope},
    {"restriction", FlowControlCommand_restriction},
    kExtensible,
});

inline constexpr Choice EndSessionCommand_gstnOptions({
    {"telephonyMode", Null},
    {"v8bis", Null},
    {"v34DSVD", Null},
    {"v34DuplexFAX", Null},
    {"v34H324", Null},
    kExtensible,
});

inline constexpr Choice EndSessionCommand_isdnOptions({
    {"telephonyMode", Null},
    {"v140", Null},
    {"terminalOnHold", Null},
    kExtensible,
});

inline constexpr Choice EndSessionCommand({
    {"nonStandard", NonStandardParameter},
    {"disconnect", Null},
    {"gstnOptions", EndSessionCommand_gstnOptions},
    kExtensible,
    {"isdnOptions", EndSessionCommand_isdnOptions},
    {"genericInformation", SequenceOf<GenericInformation>},
});

inline constexpr Sequence KeyProtectionMethod({
    {"secureChannel", Boolean},
    {"sharedSecret", Boolean},
    {"certProtectedKey", Boolean},
    kExtensible,
});

inline constexpr Sequence EncryptionUpdateRequest({
    {"keyProtectionMethod", KeyProtectionMethod, kOptional},
    kExtensible,
    {"synchFlag", Integer<0, 255>, kOptional},
});

inline constexpr Choice PictureReference({
    {"pictureNumber", Integer<0, 1023>},
    {"longTermPictureIndex", Integer<0, 255>},
    kExtensible,
});

inline constexpr Choice EncryptionUpdateDirection({
    {"masterToSlave", Null},
    {"slaveToMaster", Null},
    kExtensible,
});

inline constexpr Sequence MiscellaneousCommand_type_videoFastUpdateGOB({
    {"firstGOB", Integer<0, 17>},
    {"numberOfGOBs", Integer<1, 18>},
});

inline constexpr Sequence MiscellaneousCommand_type_videoFastUpdateMB({
    {"firstGOB", Integer<0, 255>, kOptional},
    {"firstMB", Integer<1, 8192>, kOptional},
    {"numberOfMBs", Integer<1, 8192>},
    kExtensible,
});

inline constexpr Choice MiscellaneousCommand_type_progressiveRefinementStart_repeatCount({
    {"doOneProgression", Null},
    {"doContinuousProgressions", Null},
    {"doOneIndependentProgression", Null},
    {"doContinuousIndependentProgressions", Null},
    kExtensible,
});

inline constexpr Sequence MiscellaneousCommand_type_progressiveRefinementStart({
    {"repeatCount", MiscellaneousCommand_type_progressiveRefinementStart_repeatCount},
    kExtensible,
});

inline constexpr Sequence MiscellaneousCommand_type_videoBadMBs({
    {"firstMB", Integer<1, 9216>},
    {"numberOfMBs", Integer<1, 9216>},
    {"temporalReference", Integer<0, 1023>},
    kExtensible,
});

inline constexpr Sequence MiscellaneousCommand_type_lostPartialPicture({
    {"pictureReference", PictureReference},
    {"firstMB", Integer<1, 9216>},
    {"numberOfMBs", Integer<1, 9216>},
    kExtensible,
});

inline constexpr Sequence MiscellaneousCommand_type_encryptionUpdateCommand({
    {"encryptionSync", EncryptionSync},
    {"multiplePayloadStream", MultiplePayloadStream, kOptional},
    kExtensible,
});

inline constexpr Sequence MiscellaneousCommand_type_encryptionUpdateAck({
    {"synchFlag", Integer<0, 255>},
    kExtensible,
});

inline constexpr Choice MiscellaneousCommand_type({
    {"equaliseDelay", Null},
    {"zeroDelay", Null},
    {"multipointModeCommand", Null},
    {"cancelMultipointModeCommand", Null},
    {"videoFreezePicture", Null},
    {"videoFastUpdatePicture", Null},
    {"videoFastUpdateGOB", MiscellaneousCommand_type_videoFastUpdateGOB},
    {"videoTemporalSpatialTradeOff", Integer<0, 31>},
    {"videoSendSyncEveryGOB", Null},
    {"videoSendSyncEveryGOBCancel", Null},
    kExtensible,
    {"videoFastUpdateMB", MiscellaneousCommand_type_videoFastUpdateMB},
    {"maxH223MUXPDUsize", Integer<1, 65535>},
    {"encryptionUpdate", EncryptionSync},
    {"encryptionUpdateRequest", EncryptionUpdateRequest},
    {"switchReceiveMediaOff", Null},
    {"switchReceiveMediaOn", Null},
    {"progressiveRefinementStart", MiscellaneousCommand_type_progressiveRefinementStart},
    {"progressiveRefinementAbortOne", Null},
    {"progressiveRefinementAbortContinuous", Null},
    {"videoBadMBs", MiscellaneousCommand_type_videoBadMBs},
    {"lostPicture", SequenceOf<PictureReference>},
    {"lostPartialPicture", MiscellaneousCommand_type_lostPartialPicture},
    {"recoveryReferencePicture", SequenceOf<PictureReference>},
    {"encryptionUpdateCommand", MiscellaneousCommand_type_encryptionUpdateCommand},
    {"encryptionUpdateAck", MiscellaneousCommand_type_encryptionUpdateAck},
});

inline constexpr Sequence MiscellaneousCommand({
    {"logicalChannelNumber", LogicalChannelNumber},
    {"type", MiscellaneousCommand_type},
    kExtensible,
    {"direction", EncryptionUpdateDirection, kOptional},
});

inline constexpr Sequence CommunicationModeCommand({
    {"communicationModeTable", SequenceOf<CommunicationModeTableEntry, 1, 256>},
    kExtensible,
});

inline constexpr Sequence SubstituteConferenceIDCommand({
    {"conferenceIdentifier", OctetString<16>},
    kExtensible,
});

inline constexpr Choice ConferenceCommand({
    {"broadcastMyLogicalChannel", LogicalChannelNumber},
    {"cancelBroadcastMyLogicalChannel", LogicalChannelNumber},
    {"makeTerminalBroadcaster", TerminalLabel},
    {"cancelMakeTerminalBroadcaster", Null},
    {"sendThisSource", TerminalLabel},
    {"cancelSendThisSource", Null},
    {"dropConference", Null},
    kExtensible,
    {"substituteConferenceIDCommand", SubstituteConferenceIDCommand},
});

inline constexpr Choice H223MultiplexReconfiguration_h223ModeChange({
    {"toLevel0", Null},
    {"toLevel1", Null},
    {"toLevel2", Null},
    {"toLevel2withOptionalHeader", Null},
    kExtensible,
});

inline constexpr Choice H223MultiplexReconfiguration_h223AnnexADoubleFlag({
    {"start", Null},
    {"stop", Null},
    kExtensible,
});

inline constexpr Choice H223MultiplexReconfiguration({
    {"h223ModeChange", H223MultiplexReconfiguration_h223ModeChange},
    {"h223AnnexADoubleFlag", H223MultiplexReconfiguration_h223AnnexADoubleFlag},
    kExtensible,
});

inline constexpr Choice NewATMVCCommand_aal_aal1_clockRecovery({
    {"nullClockRecovery", Null},
    {"srtsClockRecovery", Null},
    {"adaptiveClockRecovery", Null},
    kExtensible,
});

inline constexpr Choice NewATMVCCommand_aal_aal1_errorCorrection({
    {"nullErrorCorrection", Null},
    {"longInterleaver", Null},
    {"shortInterleaver", Null},
    {"errorCorrectionOnly", Null},
    kExtensible,
});

inline constexpr Sequence NewATMVCCommand_aal_aal1({
    {"clockRecovery", NewATMVCCommand_aal_aal1_clockRecovery},
    {"errorCorrection", NewATMVCCommand_aal_aal1_errorCorrection},
    {"structuredDataTransfer", Boolean},
    {"partiallyFilledCells", Boolean},
    kExtensible,
});

inline constexpr Sequence NewATMVCCommand_aal_aal5({
    {"forwardMaximumSDUSize", Integer<0, 65535>},
    {"backwardMaximumSDUSize", Integer<0, 65535>},
    kExtensible,
});

inline constexpr Choice NewATMVCCommand_aal({
    {"aal1", NewATMVCCommand_aal_aal1},
    {"aal5", NewATMVCCommand_aal_aal5},
    kExtensible,
});

inline constexpr Choice NewATMVCCommand_multiplex({
    {"noMultiplex", Null},
    {"transportStream", Null},
    {"programStream", Null},
    kExtensible,
});

inline constexpr Choice NewATMVCCommand_reverseParameters_multiplex({
    {"noMultiplex", Null},
    {"transportStream", Null},
    {"programStream", Null},
    kExtensible,
});

inline constexpr Sequence NewATMVCCommand_reverseParameters({
    {"bitRate", Integer<1, 65535>},
    {"bitRateLockedToPCRClock", Boolean},
    {"bitRateLockedToNetworkClock", Boolean},
    {"multiplex", NewATMVCCommand_reverseParameters_multiplex},
    kExtensible,
});

inline constexpr Sequence NewATMVCCommand({
    {"resourceID", Integer<0, 65535>},
    {"bitRate", Integer<1, 65535>},
    {"bitRateLockedToPCRClock", Boolean},
    {"bitRateLockedToNetworkClock", Boolean},
    {"aal", NewATMVCCommand_aal},
    {"multiplex", NewATMVCCommand_multiplex},
    {"reverseParameters", NewATMVCCommand_reverseParameters},
    kExtensible,
});

inline constexpr Choice MobileMultilinkReconfigurationCommand_status({
    {"synchronized", Null},
    {"reconfiguration", Null},
    kExtensible,
});

inline constexpr Sequence MobileMultilinkReconfigurationCommand({
    {"sampleSize", Integer<1, 255>},
    {"samplesPerFrame", Integer<1, 255>},
    {"status", MobileMultilinkReconfigurationCommand_status},
    kExtensible,
});

inline constexpr Choice CommandMessage({
    {"nonStandard", NonStandardMessage},
    {"maintenanceLoopOffCommand", MaintenanceLoopOffCommand},
    {"sendTerminalCapabilitySet", SendTerminalCapabilitySet},
    {"encryptionCommand", EncryptionCommand},
    {"flowControlCommand", FlowControlCommand},
    {"endSessionCommand", EndSessionCommand},
    {"miscellaneousCommand", MiscellaneousCommand},
    kExtensible,
    {"communicationModeCommand", CommunicationModeCommand},
    {"conferenceCommand", ConferenceCommand},
    {"h223MultiplexReconfiguration", H223MultiplexReconfiguration},
    {"newATMVCCommand", NewATMVCCommand},
    {"mobileMultilinkReconfigurationCommand", MobileMultilinkReconfigurationCommand},
    {"genericCommand", GenericMessage},
});

inline constexpr Choice FunctionNotUnderstood({
    {"request", RequestMessage},
    {"response", ResponseMessage},
    {"command", CommandMessage},
});

inline constexpr EmptySequence MasterSlaveDeterminationRelease(true);

inline constexpr Sequence TerminalCapabilitySetRelease({
    kExtensible,
    {"genericInformation", SequenceOf<GenericInformation>, kOptional},
});

inline constexpr Sequence OpenLogicalChannelConfirm({
    {"forwardLogicalChannelNumber", LogicalChannelNumber},
    kExtensible,
    {"genericInformation", SequenceOf<GenericInformation>, kOptional},
});

inline constexpr Sequence RequestChannelCloseRelease({
    {"forwardLogicalChannelNumber", LogicalChannelNumber},
    kExtensible,
});

inline constexpr Sequence MultiplexEntrySendRelease({
    {"multiplexTableEntryNumber", SequenceOf<MultiplexTableEntryNumber, 1, 15>},
    kExtensible,
});

inline constexpr Sequence RequestMultiplexEntryRelease({
    {"entryNumbers", SequenceOf<MultiplexTableEntryNumber, 1, 15>},
    kExtensible,
});

inline constexpr EmptySequence RequestModeRelease(true);

inline constexpr Sequence MiscellaneousIndication_type_videoNotDecodedMBs({
    {"firstMB", Integer<1, 8192>},
    {"numberOfMBs", Integer<1, 8192>},
    {"temporalReference", Integer<0, 255>},
    kExtensible,
});

inline constexpr Choice MiscellaneousIndication_type({
    {"logicalChannelActive", Null},
    {"logicalChannelInactive", Null},
    {"multipointConference", Null},
    {"cancelMultipointConference", Null},
    {"multipointZeroComm", Null},
    {"cancelMultipointZeroComm", Null},
    {"multipointSecondaryStatus", Null},
    {"cancelMultipointSecondaryStatus", Null},
    {"videoIndicateReadyToActivate", Null},
    {"videoTemporalSpatialTradeOff", Integer<0, 31>},
    kExtensible,
    {"videoNotDecodedMBs", MiscellaneousIndication_type_videoNotDecodedMBs},
    {"transportCapability", TransportCapability},
});

inline constexpr Sequence MiscellaneousIndication({
    {"logicalChannelNumber", LogicalChannelNumber},
    {"type", MiscellaneousIndication_type},
    kExtensible,
});

inline constexpr Choice JitterIndication_scope({
    {"logicalChannelNumber", LogicalChannelNumber},
    {"resourceID", Integer<0, 65535>},
    {"wholeMultiplex", Null},
});

inline constexpr Sequence JitterIndication({
    {"scope", JitterIndication_scope},
    {"estimatedReceivedJitterMantissa", Integer<0, 3>},
    {"estimatedReceivedJitterExponent", Integer<0, 7>},
    {"skippedFrameCount", Integer<0, 15>, kOptional},
    {"additionalDecoderBuffer", Integer<0, 262143>, kOptional},
    kExtensible,
});

inline constexpr Sequence H223SkewIndication({
    {"logicalChannelNumber1", LogicalChannelNumber},
    {"logicalChannelNumber2", LogicalChannelNumber},
    {"skew", Integer<0, 4095>},
    kExtensible,
});

inline constexpr Choice NewATMVCIndication_aal_aal1_clockRecovery({
    {"nullClockRecovery", Null},
    {"srtsClockRecovery", Null},
    {"adaptiveClockRecovery", Null},
    kExtensible,
});

inline constexpr Choice NewATMVCIndication_aal_aal1_errorCorrection({
    {"nullErrorCorrection", Null},
    {"longInterleaver", Null},
    {"shortInterleaver", Null},
    {"errorCorrectionOnly", Null},
    kExtensible,
});

inline constexpr Sequence NewATMVCIndication_aal_aal1({
    {"clockRecovery", NewATMVCIndication_aal_aal1_clockRecovery},
    {"errorCorrection", NewATMVCIndication_aal_aal1_errorCorrection},
    {"structuredDataTransfer", Boolean},
    {"partiallyFilledCells", Boolean},
    kExtensible,
});

inline constexpr Sequence NewATMVCIndication_aal_aal5({
    {"forwardMaximumSDUSize", Integer<0, 65535>},
    {"backwardMaximumSDUSize", Integer<0, 65535>},
    kExtensible,
});

inline constexpr Choice NewATMVCIndication_aal({
    {"aal1", NewATMVCIndication_aal_aal1},
    {"aal5", NewATMVCIndication_aal_aal5},
    kExtensible,
});

inline constexpr Choice NewATMVCIndication_multiplex({
    {"noMultiplex", Null},
    {"transportStream", Null},
    {"programStream", Null},
    kExtensible,
});

inline constexpr Choice NewATMVCIndication_reverseParameters_multiplex({
    {"noMultiplex", Null},
    {"transportStream", Null},
    {"programStream", Null},
    kExtensible,
});

inline constexpr Sequence NewATMVCIndication_reverseParameters({
    {"bitRate", Integer<1, 65535>},
    {"bitRateLockedToPCRClock", Boolean},
    {"bitRateLockedToNetworkClock", Boolean},
    {"multiplex", NewATMVCIndication_reverseParameters_multiplex},
    kExtensible,
});

inline constexpr Sequence NewATMVCIndication({
    {"resourceID", Integer<0, 65535>},
    {"bitRate", Integer<1, 65535>},
    {"bitRateLockedToPCRClock", Boolean},
    {"bitRateLockedToNetworkClock", Boolean},
    {"aal", NewATMVCIndication_aal},
    {"multiplex", NewATMVCIndication_multiplex},
    kExtensible,
    {"reverseParameters", NewATMVCIndication_reverseParameters},
});

inline constexpr const auto& IV8 = OctetString<8>;
inline constexpr const auto& IV16 = OctetString<16>;

inline constexpr Sequence Params({
    {"iv8", IV8, kOptional},
    {"iv16", IV16, kOptional},
    {"iv", OctetString<>, kOptional},
    kExtensible,
});

inline constexpr Choice UserInputIndication_userInputSupportIndication({
    {"nonStandard", NonStandardParameter},
    {"basicString", Null},
    {"iA5String", Null},
    {"generalString", Null},
    kExtensible,
    {"encryptedBasicString", Null},
    {"encryptedIA5String", Null},
    {"encryptedGeneralString", Null},
});

inline constexpr Sequence UserInputIndication_signal_rtp({
    {"timestamp", Integer<0, 4294967295>, kOptional},
    {"expirationTime", Integer<0, 4294967295>, kOptional},
    {"logicalChannelNumber", LogicalChannelNumber},
    kExtensible,
});

inline constexpr Sequence UserInputIndication_signal({
    {"signalType", IA5StringFrom<kSignalTypes, 1>},
    {"duration", Integer<1, 65535>, kOptional},
    {"rtp", UserInputIndication_signal_rtp, kOptional},
    kExtensible,
    {"rtpPayloadIndication", Null, kOptional},
    {"paramS", Params, kOptional},
    {"encryptedSignalType", OctetString<1>, kOptional},
    {"algorithmOID", ObjectIdentifier, kOptional},
});

inline constexpr Sequence UserInputIndication_signalUpdate_rtp({
    {"logicalChannelNumber", LogicalChannelNumber},
    kExtensible,
});

inline constexpr Sequence UserInputIndication_signalUpdate({
    {"duration", Integer<1, 65535>},
    {"rtp", UserInputIndication_signalUpdate_rtp, kOptional},
    kExtensible,
});

inline constexpr Sequence UserInputIndication_extendedAlphanumeric_encryptedAlphanumeric({
    {"algorithmOID", ObjectIdentifier},
    {"paramS", Params, kOptional},
    {"encrypted", OctetString<>},
    kExtensible,
});

inline constexpr Sequence UserInputIndication_extendedAlphanumeric({
    {"alphanumeric", GeneralString},
    {"rtpPayloadIndication", Null, kOptional},
    kExtensible,
    {"encryptedAlphanumeric", UserInputIndication_extendedAlphanumeric_encryptedAlphanumeric, kOptional},
});

inline constexpr Sequence UserInputIndication_encryptedAlphanumeric({
    {"algorithmOID", ObjectIdentifier},
    {"paramS", Params, kOptional},
    {"encrypted", OctetString<>},
    kExtensible,
});

inline constexpr Choice UserInputIndication({
    {"nonStandard", NonStandardParameter},
    {"alphanumeric", GeneralString},
    kExtensible,
    {"userInputSupportIndication", UserInputIndication_userInputSupportIndication},
    {"signal", UserInputIndication_signal},
    {"signalUpdate", UserInputIndication_signalUpdate},
    {"extendedAlphanumeric", UserInputIndication_extendedAlphanumeric},
    {"encryptedAlphanumeric", UserInputIndication_encryptedAlphanumeric},
    {"genericInformation", SequenceOf<GenericInformation>},
});

inline constexpr Sequence H2250MaximumSkewIndication({
    {"logicalChannelNumber1", LogicalChannelNumber},
    {"logicalChannelNumber2", LogicalChannelNumber},
    {"maximumSkew", Integer<0, 4095>},
    kExtensible,
});

inline constexpr Sequence MCLocationIndication({
    {"signalAddress", TransportAddress},
    kExtensible,
});

inline constexpr Sequence TerminalYouAreSeeingInSubPictureNumber({
    {"terminalNumber", TerminalNumber},
    {"subPictureNumber", Integer<0, 255>},
    kExtensible,
    {"mcuNumber", McuNumber},
});

inline constexpr Sequence VideoIndicateCompose({
    {"compositionNumber", Integer<0, 255>},
    kExtensible,
});

inline constexpr Choice ConferenceIndication({
    {"sbeNumber", Integer<0, 9>},
    {"terminalNumberAssign", TerminalLabel},
    {"terminalJoinedConference", TerminalLabel},
    {"terminalLeftConference", TerminalLabel},
    {"seenByAtLeastOneOther", Null},
    {"cancelSeenByAtLeastOneOther", Null},
    {"seenByAll", Null},
    {"cancelSeenByAll", Null},
    {"terminalYouAreSeeing", TerminalLabel},
    {"requestForFloor", Null},
    kExtensible,
    {"withdrawChairToken", Null},
    {"floorRequested", TerminalLabel},
    {"terminalYouAreSeeingInSubPictureNumber", TerminalYouAreSeeingInSubPictureNumber},
    {"videoIndicateCompose", VideoIndicateCompose},
    {"masterMCU", Null},
    {"cancelMasterMCU", Null},
});

inline constexpr Sequence VendorIdentification({
    {"vendor", NonStandardIdentifier},
    {"productNumber", OctetString<1, 256>, kOptional},
    {"versionNumber", OctetString<1, 256>, kOptional},
    kExtensible,
});

inline constexpr Choice FunctionNotSupported_cause({
    {"syntaxError", Null},
    {"semanticError", Null},
    {"unknownFunction", Null},
    kExtensible,
});

inline constexpr Sequence FunctionNotSupported({
    {"cause", FunctionNotSupported_cause},
    {"returnedFunction", OctetString<>, kOptional},
    kExtensible,
});

inline constexpr EmptySequence MultilinkIndication_crcDesired(true);

inline constexpr Sequence MultilinkIndication_excessiveError({
    {"connectionIdentifier", ConnectionIdentifier},
    kExtensible,
});

inline constexpr Choice MultilinkIndication({
    {"nonStandard", NonStandardMessage},
    {"crcDesired", MultilinkIndication_crcDesired},
    {"excessiveError", MultilinkIndication_excessiveError},
    kExtensible,
});

inline constexpr EmptySequence LogicalChannelRateRelease(true);

inline constexpr Choice FlowControlIndication_scope({
    {"logicalChannelNumber", LogicalChannelNumber},
    {"resourceID", Integer<0, 65535>},
    {"wholeMultiplex", Null},
});

inline constexpr Choice FlowControlIndication_restriction({
    {"maximumBitRate", Integer<0, 16777215>},
    {"noRestriction", Null},
});

inline constexpr Sequence FlowControlIndication({
    {"scope", FlowControlIndication_scope},
    {"restriction", FlowControlIndication_restriction},
    kExtensible,
});

inline constexpr Sequence MobileMultilinkReconfigurationIndication({
    {"sampleSize", Integer<1, 255>},
    {"samplesPerFrame", Integer<1, 255>},
    kExtensible,
});

inline constexpr Choice IndicationMessage({
    {"nonStandard", NonStandardMessage},
    {"functionNotUnderstood", FunctionNotUnderstood},
    {"masterSlaveDeterminationRelease", MasterSlaveDeterminationRelease},
    {"terminalCapabilitySetRelease", TerminalCapabilitySetRelease},
    {"openLogicalChannelConfirm", OpenLogicalChannelConfirm},
    {"requestChannelCloseRelease", RequestChannelCloseRelease},
    {"multiplexEntrySendRelease", MultiplexEntrySendRelease},
    {"requestMultiplexEntryRelease", RequestMultiplexEntryRelease},
    {"requestModeRelease", RequestModeRelease},
    {"miscellaneousIndication", MiscellaneousIndication},
    {"jitterIndication", JitterIndication},
    {"h223SkewIndication", H223SkewIndication},
    {"newATMVCIndication", NewATMVCIndication},
    {"userInput", UserInputIndication},
    kExtensible,
    {"h2250MaximumSkewIndication", H2250MaximumSkewIndication},
    {"mcLocationIndication", MCLocationIndication},
    {"conferenceIndication", ConferenceIndication},
    {"vendorIdentification", VendorIdentification},
    {"functionNotSupported", FunctionNotSupported},
    {"multilinkIndication", MultilinkIndication},
    {"logicalChannelRateRelease", LogicalChannelRateRelease},
    {"flowControlIndication", FlowControlIndication},
    {"mobileMultilinkReconfigurationIndication", MobileMultilinkReconfigurationIndication},
    {"genericIndication", GenericMessage},
});

inline constexpr Choice MultimediaSystemControlMessage({
    {"request", RequestMessage},
    {"response", ResponseMessage},
    {"command", CommandMessage},
    {"indication", IndicationMessage},
    kExtensible,
});

}  // namespace asn1::h245
