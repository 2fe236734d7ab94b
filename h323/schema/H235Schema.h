#pragma once

#include "h323/schema/Schema.h"

// H.235: the security tokens in H.225.0 call signalling.
namespace asn1::h235 {

inline constexpr const auto& ChallengeString = OctetString<8, 128>;
inline constexpr const auto& TimeStamp = Integer<1, 4294967295>;
inline constexpr const auto& RandomVal = Integer<>;
inline constexpr const auto& Password = BmpString<1, 128>;
inline constexpr const auto& Identifier = BmpString<1, 128>;
inline constexpr const auto& KeyMaterial = BitString<1, 2048>;
inline constexpr const auto& KeyMaterialExt = BitString<2049, 65536>;

inline constexpr Sequence NonStandardParameter({
    {"nonStandardIdentifier", ObjectIdentifier},
    {"data", OctetString<>},
});

inline constexpr Sequence DHset({
    {"halfkey", BitString<0, 2048>},
    {"modSize", BitString<0, 2048>},
    {"generator", BitString<0, 2048>},
    kExtensible,
});

inline constexpr Sequence DHsetExt({
    {"halfkey", BitString<2049, 65536>},
    {"modSize", BitString<2049, 65536>, kOptional},
    {"generator", BitString<2049, 65536>, kOptional},
    kExtensible,
});

inline constexpr Sequence ECpoint({
    {"x", BitString<0, 511>, kOptional},
    {"y", BitString<0, 511>, kOptional},
    kExtensible,
});

inline constexpr Sequence ECKASDH_eckasdhp({
    {"public_key", ECpoint},
    {"modulus", BitString<0, 511>},
    {"base", ECpoint},
    {"weierstrassA", BitString<0, 511>},
    {"weierstrassB", BitString<0, 511>},
});

inline constexpr Sequence ECKASDH_eckasdh2({
    {"public_key", ECpoint},
    {"fieldSize", BitString<0, 511>},
    {"base", ECpoint},
    {"weierstrassA", BitString<0, 511>},
    {"weierstrassB", BitString<0, 511>},
});

inline constexpr Choice ECKASDH({
    {"eckasdhp", ECKASDH_eckasdhp},
    {"eckasdh2", ECKASDH_eckasdh2},
    kExtensible,
});

inline constexpr Sequence TypedCertificate({
    {"type", ObjectIdentifier},
    {"certificate", OctetString<>},
    kExtensible,
});

inline constexpr const auto& IV8 = OctetString<8>;
inline constexpr const auto& IV16 = OctetString<16>;

inline constexpr Sequence Params({
    {"ranInt", Integer<>, kOptional},
    {"iv8", IV8, kOptional},
    kExtensible,
    {"iv16", IV16, kOptional},
    {"iv", OctetString<>, kOptional},
    {"clearSalt", OctetString<>, kOptional},
});

inline constexpr Sequence ENCRYPTED({
    {"algorithmOID", ObjectIdentifier},
    {"paramS", Params},
    {"encryptedData", OctetString<>},
});

inline constexpr Sequence SIGNED({
    {"toBeSigned", OpenType},
    {"algorithmOID", ObjectIdentifier},
    {"paramS", Params},
    {"signature", BitString<>},
});

inline constexpr Sequence V3KeySyncMaterial({
    {"generalID", Identifier, kOptional},
    {"algorithmOID", ObjectIdentifier, kOptional},
    {"paramS", Params},
    {"encryptedSessionKey", OctetString<>, kOptional},
    {"encryptedSaltingKey", OctetString<>, kOptional},
    {"clearSaltingKey", OctetString<>, kOptional},
    {"paramSsalt", Params, kOptional},
    {"keyDerivationOID", ObjectIdentifier, kOptional},
    kExtensible,
    {"genericKeyMaterial", OctetString<>, kOptional},
});

inline constexpr Choice H235Key({
    {"secureChannel", KeyMaterial},
    {"sharedSecret", ENCRYPTED},
    {"certProtectedKey", SIGNED},
    kExtensible,
    {"secureSharedSecret", V3KeySyncMaterial},
    {"secureChannelExt", KeyMaterialExt},
});

inline constexpr Choice Element({
    {"octets", OctetString<>},
    {"integer", Integer<>},
    {"bits", BitString<>},
    {"name", BmpString<>},
    {"flag", Boolean},
    kExtensible,
});

inline constexpr Sequence ProfileElement({
    {"elementID", Integer<0, 255>},
    {"paramS", Params, kOptional},
    {"element", Element, kOptional},
    kExtensible,
});

inline constexpr Sequence ClearToken({
    {"tokenOID", ObjectIdentifier},
    {"timeStamp", TimeStamp, kOptional},
    {"password", Password, kOptional},
    {"dhkey", DHset, kOptional},
    {"challenge", ChallengeString, kOptional},
    {"random", RandomVal, kOptional},
    {"certificate", TypedCertificate, kOptional},
    {"generalID", Identifier, kOptional},
    {"nonStandard", NonStandardParameter, kOptional},
    kExtensible,
    {"eckasdhkey", ECKASDH, kOptional},
    {"sendersID", Identifier, kOptional},
    {"h235Key", H235Key, kOptional},
    {"profileInfo", SequenceOf<ProfileElement>, kOptional},
    {"dhkeyext", DHsetExt, kOptional},
});

inline constexpr Sequence HASHED({
    {"algorithmOID", ObjectIdentifier},
    {"paramS", Params},
    {"hash", BitString<>},
});

inline constexpr Sequence CryptoToken_cryptoEncryptedToken({
    {"tokenOID", ObjectIdentifier},
    {"token", ENCRYPTED},
});

inline constexpr Sequence CryptoToken_cryptoSignedToken({
    {"tokenOID", ObjectIdentifier},
    {"token", SIGNED},
});

inline constexpr Sequence CryptoToken_cryptoHashedToken({
    {"tokenOID", ObjectIdentifier},
    {"hashedVals", ClearToken},
    {"token", HASHED},
});

inline constexpr Choice CryptoToken({
    {"cryptoEncryptedToken", CryptoToken_cryptoEncryptedToken},
    {"cryptoSignedToken", CryptoToken_cryptoSignedToken},
    {"cryptoHashedToken", CryptoToken_cryptoHashedToken},
    {"cryptoPwdEncr", ENCRYPTED},
    kExtensible,
});

}  // namespace asn1::h235
