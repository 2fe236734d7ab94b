#pragma once

#include "h323/schema/H235Schema.h"
#include "h323/schema/H245Schema.h"
#include "h323/schema/Schema.h"

// H.225.0 version 8: H323-UserInformation and every type that it contains.
namespace asn1::h225 {

inline constexpr Alphabet kDialedDigits("0123456789#*,");
inline constexpr Alphabet kTbcdDigits("0123456789#*abc");
inline constexpr Alphabet kIsupDigits("0123456789ABCDE");

// Types that contain themselves through others need a declaration. The number counts the entries of the table.
extern inline const Sequence<3> EnumeratedParameter;
extern inline const Sequence<3> GenericData;

inline constexpr const auto& ProtocolIdentifier = ObjectIdentifier;

inline constexpr Sequence H221NonStandard({
    {"t35CountryCode", Integer<0, 255>},
    {"t35Extension", Integer<0, 255>},
    {"manufacturerCode", Integer<0, 65535>},
    kExtensible,
});

inline constexpr Choice NonStandardIdentifier({
    {"object", ObjectIdentifier},
    {"h221NonStandard", H221NonStandard},
    kExtensible,
});

inline constexpr Sequence NonStandardParameter({
    {"nonStandardIdentifier", NonStandardIdentifier},
    {"data", OctetString<>},
});

inline constexpr Sequence TransportAddress_ipAddress({
    {"ip", OctetString<4>},
    {"port", Integer<0, 65535>},
});

inline constexpr Choice TransportAddress_ipSourceRoute_routing({
    {"strict", Null},
    {"loose", Null},
    kExtensible,
});

inline constexpr Sequence TransportAddress_ipSourceRoute({
    {"ip", OctetString<4>},
    {"port", Integer<0, 65535>},
    {"route", SequenceOf<OctetString<4>>},
    {"routing", TransportAddress_ipSourceRoute_routing},
    kExtensible,
});

inline constexpr Sequence TransportAddress_ipxAddress({
    {"node", OctetString<6>},
    {"netnum", OctetString<4>},
    {"port", OctetString<2>},
});

inline constexpr Sequence TransportAddress_ip6Address({
    {"ip", OctetString<16>},
    {"port", Integer<0, 65535>},
    kExtensible,
});

inline constexpr Choice TransportAddress({
    {"ipAddress", TransportAddress_ipAddress},
    {"ipSourceRoute", TransportAddress_ipSourceRoute},
    {"ipxAddress", TransportAddress_ipxAddress},
    {"ip6Address", TransportAddress_ip6Address},
    {"netBios", OctetString<16>},
    {"nsap", OctetString<1, 20>},
    {"nonStandardAddress", NonStandardParameter},
    kExtensible,
});

inline constexpr Choice PublicTypeOfNumber({
    {"unknown", Null},
    {"internationalNumber", Null},
    {"nationalNumber", Null},
    {"networkSpecificNumber", Null},
    {"subscriberNumber", Null},
    {"abbreviatedNumber", Null},
    kExtensible,
});

inline constexpr const auto& NumberDigits = IA5StringFrom<kDialedDigits, 1, 128>;

inline constexpr Sequence PublicPartyNumber({
    {"publicTypeOfNumber", PublicTypeOfNumber},
    {"publicNumberDigits", NumberDigits},
});

inline constexpr Choice PrivateTypeOfNumber({
    {"unknown", Null},
    {"level2RegionalNumber", Null},
    {"level1RegionalNumber", Null},
    {"pISNSpecificNumber", Null},
    {"localNumber", Null},
    {"abbreviatedNumber", Null},
    kExtensible,
});

inline constexpr Sequence PrivatePartyNumber({
    {"privateTypeOfNumber", PrivateTypeOfNumber},
    {"privateNumberDigits", NumberDigits},
});

inline constexpr Choice PartyNumber({
    {"e164Number", PublicPartyNumber},
    {"dataPartyNumber", NumberDigits},
    {"telexPartyNumber", NumberDigits},
    {"privateNumber", PrivatePartyNumber},
    {"nationalStandardPartyNumber", NumberDigits},
    kExtensible,
});

inline constexpr const auto& TBCD_STRING = IA5StringFrom<kTbcdDigits>;

inline constexpr Choice ANSI_41_UIM_system_id({
    {"sid", IA5StringFrom<kTbcdDigits, 1, 4>},
    {"mid", IA5StringFrom<kTbcdDigits, 1, 4>},
    kExtensible,
});

inline constexpr Sequence ANSI_41_UIM({
    {"imsi", IA5StringFrom<kTbcdDigits, 3, 16>, kOptional},
    {"min", IA5StringFrom<kTbcdDigits, 3, 16>, kOptional},
    {"mdn", IA5StringFrom<kTbcdDigits, 3, 16>, kOptional},
    {"msisdn", IA5StringFrom<kTbcdDigits, 3, 16>, kOptional},
    {"esn", IA5StringFrom<kTbcdDigits, 16>, kOptional},
    {"mscid", IA5StringFrom<kTbcdDigits, 3, 16>, kOptional},
    {"system_id", ANSI_41_UIM_system_id},
    {"systemMyTypeCode", OctetString<1>, kOptional},
    {"systemAccessType", OctetString<1>, kOptional},
    {"qualificationInformationCode", OctetString<1>, kOptional},
    {"sesn", IA5StringFrom<kTbcdDigits, 16>, kOptional},
    {"soc", IA5StringFrom<kTbcdDigits, 3, 16>, kOptional},
    kExtensible,
});

inline constexpr Sequence GSM_UIM({
    {"imsi", IA5StringFrom<kTbcdDigits, 3, 16>, kOptional},
    {"tmsi", OctetString<1, 4>, kOptional},
    {"msisdn", IA5StringFrom<kTbcdDigits, 3, 16>, kOptional},
    {"imei", IA5StringFrom<kTbcdDigits, 15, 16>, kOptional},
    {"hplmn", IA5StringFrom<kTbcdDigits, 1, 4>, kOptional},
    {"vplmn", IA5StringFrom<kTbcdDigits, 1, 4>, kOptional},
    kExtensible,
});

inline constexpr Choice MobileUIM({
    {"ansi_41_uim", ANSI_41_UIM},
    {"gsm_uim", GSM_UIM},
    kExtensible,
});

inline constexpr Choice NatureOfAddress({
    {"unknown", Null},
    {"subscriberNumber", Null},
    {"nationalNumber", Null},
    {"internationalNumber", Null},
    {"networkSpecificNumber", Null},
    {"routingNumberNationalFormat", Null},
    {"routingNumberNetworkSpecificFormat", Null},
    {"routingNumberWithCalledDirectoryNumber", Null},
    kExtensible,
});

inline constexpr const auto& IsupDigits = IA5StringFrom<kIsupDigits, 1, 128>;

inline constexpr Sequence IsupPublicPartyNumber({
    {"natureOfAddress", NatureOfAddress},
    {"address", IsupDigits},
    kExtensible,
});

inline constexpr Sequence IsupPrivatePartyNumber({
    {"privateTypeOfNumber", PrivateTypeOfNumber},
    {"address", IsupDigits},
    kExtensible,
});

inline constexpr Choice IsupNumber({
    {"e164Number", IsupPublicPartyNumber},
    {"dataPartyNumber", IsupDigits},
    {"telexPartyNumber", IsupDigits},
    {"privateNumber", IsupPrivatePartyNumber},
    {"nationalStandardPartyNumber", IsupDigits},
    kExtensible,
});

inline constexpr Choice AliasAddress({
    {"dialedDigits", IA5StringFrom<kDialedDigits, 1, 128>},
    {"h323_ID", BmpString<1, 256>},
    kExtensible,
    {"url_ID", IA5String<1, 512>},
    {"transportID", TransportAddress},
    {"email_ID", IA5String<1, 512>},
    {"partyNumber", PartyNumber},
    {"mobileUIM", MobileUIM},
    {"isupNumber", IsupNumber},
});

inline constexpr Sequence VendorIdentifier({
    {"vendor", H221NonStandard},
    {"productId", OctetString<1, 256>, kOptional},
    {"versionId", OctetString<1, 256>, kOptional},
    kExtensible,
    {"enterpriseNumber", ObjectIdentifier, kOptional},
});

inline constexpr Sequence GatekeeperInfo({
    {"nonStandardData", NonStandardParameter, kOptional},
    kExtensible,
});

inline constexpr const auto& BandWidth = Integer<0, 4294967295>;

inline constexpr Sequence DataRate({
    {"nonStandardData", NonStandardParameter, kOptional},
    {"channelRate", BandWidth},
    {"channelMultiplier", Integer<1, 256>, kOptional},
    kExtensible,
});

inline constexpr Sequence SupportedPrefix({
    {"nonStandardData", NonStandardParameter, kOptional},
    {"prefix", AliasAddress},
    kExtensible,
});

inline constexpr Sequence H310Caps({
    {"nonStandardData", NonStandardParameter, kOptional},
    kExtensible,
    {"dataRatesSupported", SequenceOf<DataRate>, kOptional},
    {"supportedPrefixes", SequenceOf<SupportedPrefix>},
});

inline constexpr Sequence H320Caps({
    {"nonStandardData", NonStandardParameter, kOptional},
    kExtensible,
    {"dataRatesSupported", SequenceOf<DataRate>, kOptional},
    {"supportedPrefixes", SequenceOf<SupportedPrefix>},
});

inline constexpr Sequence H321Caps({
    {"nonStandardData", NonStandardParameter, kOptional},
    kExtensible,
    {"dataRatesSupported", SequenceOf<DataRate>, kOptional},
    {"supportedPrefixes", SequenceOf<SupportedPrefix>},
});

inline constexpr Sequence H322Caps({
    {"nonStandardData", NonStandardParameter, kOptional},
    kExtensible,
    {"dataRatesSupported", SequenceOf<DataRate>, kOptional},
    {"supportedPrefixes", SequenceOf<SupportedPrefix>},
});

inline constexpr Sequence H323Caps({
    {"nonStandardData", NonStandardParameter, kOptional},
    kExtensible,
    {"dataRatesSupported", SequenceOf<DataRate>, kOptional},
    {"supportedPrefixes", SequenceOf<SupportedPrefix>},
});

inline constexpr Sequence H324Caps({
    {"nonStandardData", NonStandardParameter, kOptional},
    kExtensible,
    {"dataRatesSupported", SequenceOf<DataRate>, kOptional},
    {"supportedPrefixes", SequenceOf<SupportedPrefix>},
});

inline constexpr Sequence VoiceCaps({
    {"nonStandardData", NonStandardParameter, kOptional},
    kExtensible,
    {"dataRatesSupported", SequenceOf<DataRate>, kOptional},
    {"supportedPrefixes", SequenceOf<SupportedPrefix>},
});

inline constexpr Sequence T120OnlyCaps({
    {"nonStandardData", NonStandardParameter, kOptional},
    kExtensible,
    {"dataRatesSupported", SequenceOf<DataRate>, kOptional},
    {"supportedPrefixes", SequenceOf<SupportedPrefix>},
});

inline constexpr Sequence NonStandardProtocol({
    {"nonStandardData", NonStandardParameter, kOptional},
    {"dataRatesSupported", SequenceOf<DataRate>, kOptional},
    {"supportedPrefixes", SequenceOf<SupportedPrefix>},
    kExtensible,
});

inline constexpr Sequence T38FaxAnnexbOnlyCaps({
    {"nonStandardData", NonStandardParameter, kOptional},
    {"dataRatesSupported", SequenceOf<DataRate>, kOptional},
    {"supportedPrefixes", SequenceOf<SupportedPrefix>},
    {"t38FaxProtocol", h245::DataProtocolCapability},
    {"t38FaxProfile", h245::T38FaxProfile},
    kExtensible,
});

inline constexpr Sequence SIPCaps({
    {"nonStandardData", NonStandardParameter, kOptional},
    {"dataRatesSupported", SequenceOf<DataRate>, kOptional},
    {"supportedPrefixes", SequenceOf<SupportedPrefix>, kOptional},
    kExtensible,
});

inline constexpr Choice SupportedProtocols({
    {"nonStandardData", NonStandardParameter},
    {"h310", H310Caps},
    {"h320", H320Caps},
    {"h321", H321Caps},
    {"h322", H322Caps},
    {"h323", H323Caps},
    {"h324", H324Caps},
    {"voice", VoiceCaps},
    {"t120_only", T120OnlyCaps},
    kExtensible,
    {"nonStandardProtocol", NonStandardProtocol},
    {"t38FaxAnnexbOnly", T38FaxAnnexbOnlyCaps},
    {"sip", SIPCaps},
});

inline constexpr Sequence GatewayInfo({
    {"protocol", SequenceOf<SupportedProtocols>, kOptional},
    {"nonStandardData", NonStandardParameter, kOptional},
    kExtensible,
});

inline constexpr Sequence McuInfo({
    {"nonStandardData", NonStandardParameter, kOptional},
    kExtensible,
    {"protocol", SequenceOf<SupportedProtocols>, kOptional},
});

inline constexpr Sequence TerminalInfo({
    {"nonStandardData", NonStandardParameter, kOptional},
    kExtensible,
});

inline constexpr Sequence TunnelledProtocolAlternateIdentifier({
    {"protocolType", IA5String<1, 64>},
    {"protocolVariant", IA5String<1, 64>, kOptional},
    kExtensible,
});

inline constexpr Choice TunnelledProtocol_id({
    {"tunnelledProtocolObjectID", ObjectIdentifier},
    {"tunnelledProtocolAlternateID", TunnelledProtocolAlternateIdentifier},
    kExtensible,
});

inline constexpr Sequence TunnelledProtocol({
    {"id", TunnelledProtocol_id},
    {"subIdentifier", IA5String<1, 64>, kOptional},
    kExtensible,
});

inline constexpr Sequence EndpointType({
    {"nonStandardData", NonStandardParameter, kOptional},
    {"vendor", VendorIdentifier, kOptional},
    {"gatekeeper", GatekeeperInfo, kOptional},
    {"gateway", GatewayInfo, kOptional},
    {"mcu", McuInfo, kOptional},
    {"terminal", TerminalInfo, kOptional},
    {"mc", Boolean},
    {"undefinedNode", Boolean},
    kExtensible,
    {"set", BitString<32>, kOptional},
    {"supportedTunnelledProtocols", SequenceOf<TunnelledProtocol>, kOptional},
});

inline constexpr const auto& CallReferenceValue = Integer<0, 65535>;
inline constexpr const auto& GloballyUniqueID = OctetString<16>;
inline constexpr const auto& ConferenceIdentifier = GloballyUniqueID;

inline constexpr Sequence Q954Details({
    {"conferenceCalling", Boolean},
    {"threePartyService", Boolean},
    kExtensible,
});

inline constexpr Sequence QseriesOptions({
    {"q932Full", Boolean},
    {"q951Full", Boolean},
    {"q952Full", Boolean},
    {"q953Full", Boolean},
    {"q955Full", Boolean},
    {"q956Full", Boolean},
    {"q957Full", Boolean},
    {"q954Info", Q954Details},
    kExtensible,
});

inline constexpr Choice CallType({
    {"pointToPoint", Null},
    {"oneToN", Null},
    {"nToOne", Null},
    {"nToN", Null},
    kExtensible,
});

inline constexpr Sequence CallIdentifier({
    {"guid", GloballyUniqueID},
    kExtensible,
});

inline constexpr Choice SecurityServiceMode({
    {"nonStandard", NonStandardParameter},
    {"none", Null},
    {"default", Null},
    kExtensible,
});

inline constexpr Sequence SecurityCapabilities({
    {"nonStandard", NonStandardParameter, kOptional},
    {"encryption", SecurityServiceMode},
    {"authenticaton", SecurityServiceMode},
    {"integrity", SecurityServiceMode},
    kExtensible,
});

inline constexpr Choice H245Security({
    {"nonStandard", NonStandardParameter},
    {"noSecurity", Null},
    {"tls", SecurityCapabilities},
    {"ipsec", SecurityCapabilities},
    kExtensible,
});

inline constexpr const auto& GatekeeperIdentifier = BmpString<1, 128>;

inline constexpr Sequence CryptoH323Token_cryptoEPPwdHash({
    {"alias", AliasAddress},
    {"timeStamp", h235::TimeStamp},
    {"token", h235::HASHED},
});

inline constexpr Sequence CryptoH323Token_cryptoGKPwdHash({
    {"gatekeeperId", GatekeeperIdentifier},
    {"timeStamp", h235::TimeStamp},
    {"token", h235::HASHED},
});

inline constexpr Choice CryptoH323Token({
    {"cryptoEPPwdHash", CryptoH323Token_cryptoEPPwdHash},
    {"cryptoGKPwdHash", CryptoH323Token_cryptoGKPwdHash},
    {"cryptoEPPwdEncr", h235::ENCRYPTED},
    {"cryptoGKPwdEncr", h235::ENCRYPTED},
    {"cryptoEPCert", h235::SIGNED},
    {"cryptoGKCert", h235::SIGNED},
    {"cryptoFastStart", h235::SIGNED},
    {"nestedcryptoToken", h235::CryptoToken},
    kExtensible,
});

inline constexpr const auto& EndpointIdentifier = BmpString<1, 128>;

inline constexpr Choice ScnConnectionType({
    {"unknown", Null},
    {"bChannel", Null},
    {"hybrid2x64", Null},
    {"hybrid384", Null},
    {"hybrid1536", Null},
    {"hybrid1920", Null},
    {"multirate", Null},
    kExtensible,
});

inline constexpr Choice ScnConnectionAggregation({
    {"auto", Null},
    {"none", Null},
    {"h221", Null},
    {"bonded_mode1", Null},
    {"bonded_mode2", Null},
    {"bonded_mode3", Null},
    kExtensible,
});

inline constexpr Choice PresentationIndicator({
    {"presentationAllowed", Null},
    {"presentationRestricted", Null},
    {"addressNotAvailable", Null},
    kExtensible,
});

inline constexpr Enumerated ScreeningIndicator({
    {"userProvidedNotScreened", Null},
    {"userProvidedVerifiedAndPassed", Null},
    {"userProvidedVerifiedAndFailed", Null},
    {"networkProvided", Null},
    kExtensible,
});

inline constexpr const auto& H248SignalsDescriptor = OctetString<>;

inline constexpr Choice CallCreditServiceControl_billingMode({
    {"credit", Null},
    {"debit", Null},
    kExtensible,
});

inline constexpr Choice CallCreditServiceControl_callStartingPoint({
    {"alerting", Null},
    {"connect", Null},
    kExtensible,
});

inline constexpr Sequence CallCreditServiceControl({
    {"amountString", BmpString<1, 512>, kOptional},
    {"billingMode", CallCreditServiceControl_billingMode, kOptional},
    {"callDurationLimit", Integer<1, 4294967295>, kOptional},
    {"enforceCallDurationLimit", Boolean, kOptional},
    {"callStartingPoint", CallCreditServiceControl_callStartingPoint, kOptional},
    kExtensible,
});

inline constexpr Choice ServiceControlDescriptor({
    {"url", IA5String<0, 512>},
    {"signal", H248SignalsDescriptor},
    {"nonStandard", NonStandardParameter},
    {"callCreditServiceControl", CallCreditServiceControl},
    kExtensible,
});

inline constexpr Choice ServiceControlSession_reason({
    {"open", Null},
    {"refresh", Null},
    {"close", Null},
    kExtensible,
});

inline constexpr Sequence ServiceControlSession({
    {"sessionId", Integer<0, 255>},
    {"contents", ServiceControlDescriptor, kOptional},
    {"reason", ServiceControlSession_reason},
    kExtensible,
});

inline constexpr Sequence CarrierInfo({
    {"carrierIdentificationCode", OctetString<3, 4>, kOptional},
    {"carrierName", IA5String<1, 128>, kOptional},
    kExtensible,
});

inline constexpr Sequence CallsAvailable({
    {"calls", Integer<0, 4294967295>},
    {"group", IA5String<1, 128>, kOptional},
    kExtensible,
    {"carrier", CarrierInfo, kOptional},
});

inline constexpr Sequence CallCapacityInfo({
    {"voiceGwCallsAvailable", SequenceOf<CallsAvailable>, kOptional},
    {"h310GwCallsAvailable", SequenceOf<CallsAvailable>, kOptional},
    {"h320GwCallsAvailable", SequenceOf<CallsAvailable>, kOptional},
    {"h321GwCallsAvailable", SequenceOf<CallsAvailable>, kOptional},
    {"h322GwCallsAvailable", SequenceOf<CallsAvailable>, kOptional},
    {"h323GwCallsAvailable", SequenceOf<CallsAvailable>, kOptional},
    {"h324GwCallsAvailable", SequenceOf<CallsAvailable>, kOptional},
    {"t120OnlyGwCallsAvailable", SequenceOf<CallsAvailable>, kOptional},
    {"t38FaxAnnexbOnlyGwCallsAvailable", SequenceOf<CallsAvailable>, kOptional},
    {"terminalCallsAvailable", SequenceOf<CallsAvailable>, kOptional},
    {"mcuCallsAvailable", SequenceOf<CallsAvailable>, kOptional},
    kExtensible,
    {"sipGwCallsAvailable", SequenceOf<CallsAvailable>, kOptional},
});

inline constexpr Sequence CallCapacity({
    {"maximumCallCapacity", CallCapacityInfo, kOptional},
    {"currentCallCapacity", CallCapacityInfo, kOptional},
    kExtensible,
});

inline constexpr Sequence CicInfo({
    {"cic", SequenceOf<OctetString<2, 4>>},
    {"pointCode", OctetString<2, 5>},
    kExtensible,
});

inline constexpr Sequence GroupID({
    {"member", SequenceOf<Integer<0, 65535>>, kOptional},
    {"group", IA5String<1, 128>},
    kExtensible,
});

inline constexpr Sequence CircuitIdentifier({
    {"cic", CicInfo, kOptional},
    {"group", GroupID, kOptional},
    kExtensible,
    {"carrier", CarrierInfo, kOptional},
});

inline constexpr Choice GenericIdentifier({
    {"standard", ExtensibleInteger<0, 16383>},
    {"oid", ObjectIdentifier},
    {"nonStandard", GloballyUniqueID},
    kExtensible,
});

inline constexpr Choice Content({
    {"raw", OctetString<>},
    {"text", IA5String<>},
    {"unicode", BmpString<>},
    {"bool", Boolean},
    {"number8", Integer<0, 255>},
    {"number16", Integer<0, 65535>},
    {"number32", Integer<0, 4294967295>},
    {"id", GenericIdentifier},
    {"alias", AliasAddress},
    {"transport", TransportAddress},
    {"compound", SequenceOf<EnumeratedParameter, 1, 512>},
    {"nested", SequenceOf<GenericData, 1, 16>},
    kExtensible,
});

inline constexpr Sequence<3> EnumeratedParameter({
    {"id", GenericIdentifier},
    {"content", Content, kOptional},
    kExtensible,
});

inline constexpr Sequence<3> GenericData({
    {"id", GenericIdentifier},
    {"parameters", SequenceOf<EnumeratedParameter, 1, 512>, kOptional},
    kExtensible,
});

inline constexpr Sequence CircuitInfo({
    {"sourceCircuitID", CircuitIdentifier, kOptional},
    {"destinationCircuitID", CircuitIdentifier, kOptional},
    {"genericData", SequenceOf<GenericData>, kOptional},
    kExtensible,
});

inline constexpr const auto& FeatureDescriptor = GenericData;

inline constexpr Sequence ExtendedAliasAddress({
    {"address", AliasAddress},
    {"presentationIndicator", PresentationIndicator, kOptional},
    {"screeningIndicator", ScreeningIndicator, kOptional},
    kExtensible,
});

inline constexpr Sequence DisplayName({
    {"language", IA5String<>, kOptional},
    {"name", BmpString<1, 80>},
});

inline constexpr Choice Setup_UUIE_conferenceGoal({
    {"create", Null},
    {"join", Null},
    {"invite", Null},
    kExtensible,
    {"capability_negotiation", Null},
    {"callIndependentSupplementaryService", Null},
});

inline constexpr Sequence Setup_UUIE_connectionParameters({
    {"connectionType", ScnConnectionType},
    {"numberOfScnConnections", Integer<0, 65535>},
    {"connectionAggregation", ScnConnectionAggregation},
    kExtensible,
});

inline constexpr Sequence Setup_UUIE({
    {"protocolIdentifier", ProtocolIdentifier},
    {"h245Address", TransportAddress, kOptional},
    {"sourceAddress", SequenceOf<AliasAddress>, kOptional},
    {"sourceInfo", EndpointType},
    {"destinationAddress", SequenceOf<AliasAddress>, kOptional},
    {"destCallSignalAddress", TransportAddress, kOptional},
    {"destExtraCallInfo", SequenceOf<AliasAddress>, kOptional},
    {"destExtraCRV", SequenceOf<CallReferenceValue>, kOptional},
    {"activeMC", Boolean},
    {"conferenceID", ConferenceIdentifier},
    {"conferenceGoal", Setup_UUIE_conferenceGoal},
    {"callServices", QseriesOptions, kOptional},
    {"callType", CallType},
    kExtensible,
    {"sourceCallSignalAddress", TransportAddress, kOptional},
    {"remoteExtensionAddress", AliasAddress, kOptional},
    {"callIdentifier", CallIdentifier},
    {"h245SecurityCapability", SequenceOf<H245Security>, kOptional},
    {"tokens", SequenceOf<h235::ClearToken>, kOptional},
    {"cryptoTokens", SequenceOf<CryptoH323Token>, kOptional},
    {"fastStart", SequenceOf<OctetString<>>, kOptional},
    {"mediaWaitForConnect", Boolean},
    {"canOverlapSend", Boolean},
    {"endpointIdentifier", EndpointIdentifier, kOptional},
    {"multipleCalls", Boolean},
    {"maintainConnection", Boolean},
    {"connectionParameters", Setup_UUIE_connectionParameters, kOptional},
    {"language", SequenceOf<IA5String<1, 32>>, kOptional},
    {"presentationIndicator", PresentationIndicator, kOptional},
    {"screeningIndicator", ScreeningIndicator, kOptional},
    {"serviceControl", SequenceOf<ServiceControlSession>, kOptional},
    {"symmetricOperationRequired", Null, kOptional},
    {"capacity", CallCapacity, kOptional},
    {"circuitInfo", CircuitInfo, kOptional},
    {"desiredProtocols", SequenceOf<SupportedProtocols>, kOptional},
    {"neededFeatures", SequenceOf<FeatureDescriptor>, kOptional},
    {"desiredFeatures", SequenceOf<FeatureDescriptor>, kOptional},
    {"supportedFeatures", SequenceOf<FeatureDescriptor>, kOptional},
    {"parallelH245Control", SequenceOf<OctetString<>>, kOptional},
    {"additionalSourceAddresses", SequenceOf<ExtendedAliasAddress>, kOptional},
    {"hopCount", Integer<1, 31>, kOptional},
    {"displayName", SequenceOf<DisplayName>, kOptional},
});

inline constexpr Sequence FeatureSet({
    {"replacementFeatureSet", Boolean},
    {"neededFeatures", SequenceOf<FeatureDescriptor>, kOptional},
    {"desiredFeatures", SequenceOf<FeatureDescriptor>, kOptional},
    {"supportedFeatures", SequenceOf<FeatureDescriptor>, kOptional},
    kExtensible,
});

inline constexpr Sequence CallProceeding_UUIE({
    {"protocolIdentifier", ProtocolIdentifier},
    {"destinationInfo", EndpointType},
    {"h245Address", TransportAddress, kOptional},
    kExtensible,
    {"callIdentifier", CallIdentifier},
    {"h245SecurityMode", H245Security, kOptional},
    {"tokens", SequenceOf<h235::ClearToken>, kOptional},
    {"cryptoTokens", SequenceOf<CryptoH323Token>, kOptional},
    {"fastStart", SequenceOf<OctetString<>>, kOptional},
    {"multipleCalls", Boolean},
    {"maintainConnection", Boolean},
    {"fastConnectRefused", Null, kOptional},
    {"featureSet", FeatureSet, kOptional},
});

inline constexpr Sequence Connect_UUIE({
    {"protocolIdentifier", ProtocolIdentifier},
    {"h245Address", TransportAddress, kOptional},
    {"destinationInfo", EndpointType},
    {"conferenceID", ConferenceIdentifier},
    kExtensible,
    {"callIdentifier", CallIdentifier},
    {"h245SecurityMode", H245Security, kOptional},
    {"tokens", SequenceOf<h235::ClearToken>, kOptional},
    {"cryptoTokens", SequenceOf<CryptoH323Token>, kOptional},
    {"fastStart", SequenceOf<OctetString<>>, kOptional},
    {"multipleCalls", Boolean},
    {"maintainConnection", Boolean},
    {"language", SequenceOf<IA5String<1, 32>>, kOptional},
    {"connectedAddress", SequenceOf<AliasAddress>, kOptional},
    {"presentationIndicator", PresentationIndicator, kOptional},
    {"screeningIndicator", ScreeningIndicator, kOptional},
    {"fastConnectRefused", Null, kOptional},
    {"serviceControl", SequenceOf<ServiceControlSession>, kOptional},
    {"capacity", CallCapacity, kOptional},
    {"featureSet", FeatureSet, kOptional},
    {"displayName", SequenceOf<DisplayName>, kOptional},
});

inline constexpr Sequence Alerting_UUIE({
    {"protocolIdentifier", ProtocolIdentifier},
    {"destinationInfo", EndpointType},
    {"h245Address", TransportAddress, kOptional},
    kExtensible,
    {"callIdentifier", CallIdentifier},
    {"h245SecurityMode", H245Security, kOptional},
    {"tokens", SequenceOf<h235::ClearToken>, kOptional},
    {"cryptoTokens", SequenceOf<CryptoH323Token>, kOptional},
    {"fastStart", SequenceOf<OctetString<>>, kOptional},
    {"multipleCalls", Boolean},
    {"maintainConnection", Boolean},
    {"alertingAddress", SequenceOf<AliasAddress>, kOptional},
    {"presentationIndicator", PresentationIndicator, kOptional},
    {"screeningIndicator", ScreeningIndicator, kOptional},
    {"fastConnectRefused", Null, kOptional},
    {"serviceControl", SequenceOf<ServiceControlSession>, kOptional},
    {"capacity", CallCapacity, kOptional},
    {"featureSet", FeatureSet, kOptional},
    {"displayName", SequenceOf<DisplayName>, kOptional},
});

inline constexpr Sequence Information_UUIE({
    {"protocolIdentifier", ProtocolIdentifier},
    kExtensible,
    {"callIdentifier", CallIdentifier},
    {"tokens", SequenceOf<h235::ClearToken>, kOptional},
    {"cryptoTokens", SequenceOf<CryptoH323Token>, kOptional},
    {"fastStart", SequenceOf<OctetString<>>, kOptional},
    {"fastConnectRefused", Null, kOptional},
    {"circuitInfo", CircuitInfo, kOptional},
});

inline constexpr Choice SecurityErrors({
    {"securityWrongSyncTime", Null},
    {"securityReplay", Null},
    {"securityWrongGeneralID", Null},
    {"securityWrongSendersID", Null},
    {"securityIntegrityFailed", Null},
    {"securityWrongOID", Null},
    {"securityDHmismatch", Null},
    {"securityCertificateExpired", Null},
    {"securityCertificateDateInvalid", Null},
    {"securityCertificateRevoked", Null},
    {"securityCertificateNotReadable", Null},
    {"securityCertificateSignatureInvalid", Null},
    {"securityCertificateMissing", Null},
    {"securityCertificateIncomplete", Null},
    {"securityUnsupportedCertificateAlgOID", Null},
    {"securityUnknownCA", Null},
    kExtensible,
});

inline constexpr Choice ReleaseCompleteReason({
    {"noBandwidth", Null},
    {"gatekeeperResources", Null},
    {"unreachableDestination", Null},
    {"destinationRejection", Null},
    {"invalidRevision", Null},
    {"noPermission", Null},
    {"unreachableGatekeeper", Null},
    {"gatewayResources", Null},
    {"badFormatAddress", Null},
    {"adaptiveBusy", Null},
    {"inConf", Null},
    {"undefinedReason", Null},
    kExtensible,
    {"facilityCallDeflection", Null},
    {"securityDenied", Null},
    {"calledPartyNotRegistered", Null},
    {"callerNotRegistered", Null},
    {"newConnectionNeeded", Null},
    {"nonStandardReason", NonStandardParameter},
    {"replaceWithConferenceInvite", ConferenceIdentifier},
    {"genericDataReason", Null},
    {"neededFeatureNotSupported", Null},
    {"tunnelledSignallingRejected", Null},
    {"invalidCID", Null},
    {"securityError", SecurityErrors},
    {"hopCountExceeded", Null},
});

inline constexpr Sequence ReleaseComplete_UUIE({
    {"protocolIdentifier", ProtocolIdentifier},
    {"reason", ReleaseCompleteReason, kOptional},
    kExtensible,
    {"callIdentifier", CallIdentifier},
    {"tokens", SequenceOf<h235::ClearToken>, kOptional},
    {"cryptoTokens", SequenceOf<CryptoH323Token>, kOptional},
    {"busyAddress", SequenceOf<AliasAddress>, kOptional},
    {"presentationIndicator", PresentationIndicator, kOptional},
    {"screeningIndicator", ScreeningIndicator, kOptional},
    {"capacity", CallCapacity, kOptional},
    {"serviceControl", SequenceOf<ServiceControlSession>, kOptional},
    {"featureSet", FeatureSet, kOptional},
    {"destinationInfo", EndpointType, kOptional},
    {"displayName", SequenceOf<DisplayName>, kOptional},
});

inline constexpr Choice FacilityReason({
    {"routeCallToGatekeeper", Null},
    {"callForwarded", Null},
    {"routeCallToMC", Null},
    {"undefinedReason", Null},
    kExtensible,
    {"conferenceListChoice", Null},
    {"startH245", Null},
    {"noH245", Null},
    {"newTokens", Null},
    {"featureSetUpdate", Null},
    {"forwardedElements", Null},
    {"transportedInformation", Null},
});

inline constexpr Sequence ConferenceList({
    {"conferenceID", ConferenceIdentifier, kOptional},
    {"conferenceAlias", AliasAddress, kOptional},
    {"nonStandardData", NonStandardParameter, kOptional},
    kExtensible,
});

inline constexpr Sequence Facility_UUIE({
    {"protocolIdentifier", ProtocolIdentifier},
    {"alternativeAddress", TransportAddress, kOptional},
    {"alternativeAliasAddress", SequenceOf<AliasAddress>, kOptional},
    {"conferenceID", ConferenceIdentifier, kOptional},
    {"reason", FacilityReason},
    kExtensible,
    {"callIdentifier", CallIdentifier},
    {"destExtraCallInfo", SequenceOf<AliasAddress>, kOptional},
    {"remoteExtensionAddress", AliasAddress, kOptional},
    {"tokens", SequenceOf<h235::ClearToken>, kOptional},
    {"cryptoTokens", SequenceOf<CryptoH323Token>, kOptional},
    {"conferences", SequenceOf<ConferenceList>, kOptional},
    {"h245Address", TransportAddress, kOptional},
    {"fastStart", SequenceOf<OctetString<>>, kOptional},
    {"multipleCalls", Boolean},
    {"maintainConnection", Boolean},
    {"fastConnectRefused", Null, kOptional},
    {"serviceControl", SequenceOf<ServiceControlSession>, kOptional},
    {"circuitInfo", CircuitInfo, kOptional},
    {"featureSet", FeatureSet, kOptional},
    {"destinationInfo", EndpointType, kOptional},
    {"h245SecurityMode", H245Security, kOptional},
});

inline constexpr Sequence Progress_UUIE({
    {"protocolIdentifier", ProtocolIdentifier},
    {"destinationInfo", EndpointType},
    {"h245Address", TransportAddress, kOptional},
    {"callIdentifier", CallIdentifier},
    {"h245SecurityMode", H245Security, kOptional},
    {"tokens", SequenceOf<h235::ClearToken>, kOptional},
    {"cryptoTokens", SequenceOf<CryptoH323Token>, kOptional},
    {"fastStart", SequenceOf<OctetString<>>, kOptional},
    kExtensible,
    {"multipleCalls", Boolean},
    {"maintainConnection", Boolean},
    {"fastConnectRefused", Null, kOptional},
});

inline constexpr Sequence Status_UUIE({
    {"protocolIdentifier", ProtocolIdentifier},
    {"callIdentifier", CallIdentifier},
    {"tokens", SequenceOf<h235::ClearToken>, kOptional},
    {"cryptoTokens", SequenceOf<CryptoH323Token>, kOptional},
    kExtensible,
});

inline constexpr Sequence StatusInquiry_UUIE({
    {"protocolIdentifier", ProtocolIdentifier},
    {"callIdentifier", CallIdentifier},
    {"tokens", SequenceOf<h235::ClearToken>, kOptional},
    {"cryptoTokens", SequenceOf<CryptoH323Token>, kOptional},
    kExtensible,
});

inline constexpr Sequence SetupAcknowledge_UUIE({
    {"protocolIdentifier", ProtocolIdentifier},
    {"callIdentifier", CallIdentifier},
    {"tokens", SequenceOf<h235::ClearToken>, kOptional},
    {"cryptoTokens", SequenceOf<CryptoH323Token>, kOptional},
    kExtensible,
});

inline constexpr Sequence Notify_UUIE({
    {"protocolIdentifier", ProtocolIdentifier},
    {"callIdentifier", CallIdentifier},
    {"tokens", SequenceOf<h235::ClearToken>, kOptional},
    {"cryptoTokens", SequenceOf<CryptoH323Token>, kOptional},
    kExtensible,
    {"connectedAddress", SequenceOf<AliasAddress>, kOptional},
    {"presentationIndicator", PresentationIndicator, kOptional},
    {"screeningIndicator", ScreeningIndicator, kOptional},
    {"destinationInfo", EndpointType, kOptional},
    {"displayName", SequenceOf<DisplayName>, kOptional},
});

inline constexpr Sequence CallLinkage({
    {"globalCallId", GloballyUniqueID, kOptional},
    {"threadId", GloballyUniqueID, kOptional},
    kExtensible,
});

inline constexpr Sequence StimulusControl({
    {"nonStandard", NonStandardParameter, kOptional},
    {"isText", Null, kOptional},
    {"h248Message", OctetString<>, kOptional},
    kExtensible,
});

inline constexpr Choice H323_UU_PDU_h323_message_body({
    {"setup", Setup_UUIE},
    {"callProceeding", CallProceeding_UUIE},
    {"connect", Connect_UUIE},
    {"alerting", Alerting_UUIE},
    {"information", Information_UUIE},
    {"releaseComplete", ReleaseComplete_UUIE},
    {"facility", Facility_UUIE},
    kExtensible,
    {"progress", Progress_UUIE},
    {"empty", Null},
    {"status", Status_UUIE},
    {"statusInquiry", StatusInquiry_UUIE},
    {"setupAcknowledge", SetupAcknowledge_UUIE},
    {"notify", Notify_UUIE},
});

inline constexpr Sequence H323_UU_PDU_tunnelledSignallingMessage({
    {"tunnelledProtocolID", TunnelledProtocol},
    {"messageContent", SequenceOf<OctetString<>>},
    {"tunnellingRequired", Null, kOptional},
    {"nonStandardData", NonStandardParameter, kOptional},
    kExtensible,
});

inline constexpr Sequence H323_UU_PDU({
    {"h323_message_body", H323_UU_PDU_h323_message_body},
    {"nonStandardData", NonStandardParameter, kOptional},
    kExtensible,
    {"h4501SupplementaryService", SequenceOf<OctetString<>>, kOptional},
    {"h245Tunneling", Boolean},
    {"h245Control", SequenceOf<OctetString<>>, kOptional},
    {"nonStandardControl", SequenceOf<NonStandardParameter>, kOptional},
    {"callLinkage", CallLinkage, kOptional},
    {"tunnelledSignallingMessage", H323_UU_PDU_tunnelledSignallingMessage, kOptional},
    {"provisionalRespToH245Tunneling", Null, kOptional},
    {"stimulusControl", StimulusControl, kOptional},
    {"genericData", SequenceOf<GenericData>, kOptional},
});

inline constexpr Sequence H323_UserInformation_user_data({
    {"protocol_discriminator", Integer<0, 255>},
    {"user_information", OctetString<1, 131>},
    kExtensible,
});

inline constexpr Sequence H323_UserInformation({
    {"h323_uu_pdu", H323_UU_PDU},
    {"user_data", H323_UserInformation_user_data, kOptional},
    kExtensible,
});

}  // namespace asn1::h225
