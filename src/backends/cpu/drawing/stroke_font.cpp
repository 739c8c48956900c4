// SPDX-License-Identifier: MIT
#include "backends/cpu/drawing/stroke_font.h"

#include <algorithm>
#include <iterator>

namespace tavi {
namespace {

struct Glyph {
    uint16_t code;
    const char* strokes;
};

/// A letter that looks like another one, or is another one with an accent.
struct Composed {
    uint16_t code;
    uint16_t base;
    uint16_t mark; ///< 0: none
};

// clang-format off
constexpr Glyph kGlyphs[] = {
    {0x021, "AFAN ARAS"}, // !
    {0x022, "AFAI DFDI"}, // "
    {0x023, "DFBS HFFS AJIJ AOIO"}, // #
    {0x024, "IIiFEFaFaLELiLiSESaSAP EDEU"}, // $
    {0x025, "aFdFdJaJ gOjOjSgS JFAS"}, // %
    {0x026, "ISCJaFDFgFGIgKDMaOAPaSDShSIM"}, // &
    {0x027, "AFAI"}, // '
    {0x028, "DEaHAMaRDU"}, // (
    {0x029, "AEdHDMdRAU"}, // )
    {0x02a, "DFDL AGGK GGAK"}, // *
    {0x02b, "EIEQ AMIM"}, // +
    {0x02c, "BRBSAU"}, // ,
    {0x02d, "AMFM"}, // -
    {0x02e, "ARBRBSAS"}, // .
    {0x02f, "GEAU"}, // /
    {0x030, "aFhFhSaS"}, // 0
    {0x031, "BIEFES BSHS"}, // 1
    {0x032, "AIaFEFhFHIhKENASHS"}, // 2
    {0x033, "AIaFDFgFgLDLhLhSDSaSAP"}, // 3
    {0x034, "FSFFAOHO"}, // 4
    {0x035, "GFAFALDKhKhSDSaSAP"}, // 5
    {0x036, "HHhFEFaFAOaSDShShKDKaKAO"}, // 6
    {0x037, "AFHFDS"}, // 7
    {0x038, "bFgFgLbL aLhLhSaS"}, // 8
    {0x039, "AQaSDShSHJhFEFaFaNENhNHJ"}, // 9
    {0x03a, "AKBKBLAL ARBRBSAS"}, // :
    {0x03b, "AKBKBLAL BRBSAU"}, // ;
    {0x03c, "IHAMIR"}, // <
    {0x03d, "AKIK AOIO"}, // =
    {0x03e, "AHIMAR"}, // >
    {0x03f, "AIaFDFgFGIgKDMDO DRDS"}, // ?
    {0x040, "ISFSaSaFFFkFKLkPIPhPHNHJ HLhJFJdJdPFPhPHN"}, // @
    {0x041, "ASEFIS BOHO"}, // A
    {0x042, "ALELhLhFEFAFASESiSiLEL"}, // B
    {0x043, "IIiFEFaFaSESiSIP"}, // C
    {0x044, "AFASDSiSiFDFAF"}, // D
    {0x045, "HFAFASHS ALGL"}, // E
    {0x046, "HFAFAS ALGL"}, // F
    {0x047, "IIiFEFaFaSESiSIPIMFM"}, // G
    {0x048, "AFAS IFIS ALIL"}, // H
    {0x049, "AFEF CFCS ASES"}, // I
    {0x04a, "GFGOgSDSaSAP"}, // J
    {0x04b, "AFAS IFAN DKIS"}, // K
    {0x04c, "AFASHS"}, // L
    {0x04d, "ASAFFOKFKS"}, // M
    {0x04e, "ASAFISIF"}, // N
    {0x04f, "aFiFiSaS"}, // O
    {0x050, "ASAFEFiFiMEMAM"}, // P
    {0x051, "aFiFiSaS FOJT"}, // Q
    {0x052, "ASAFEFiFiMEMAM EMIS"}, // R
    {0x053, "IIiFEFaFaLELiLiSESaSAP"}, // S
    {0x054, "AFIF EFES"}, // T
    {0x055, "AFAOaSESiSIOIF"}, // U
    {0x056, "AFESIF"}, // V
    {0x057, "AFDSGGJSMF"}, // W
    {0x058, "AFIS IFAS"}, // X
    {0x059, "AFELIF ELES"}, // Y
    {0x05a, "AFIFASIS"}, // Z
    {0x05b, "DEAEAUDU"}, // [
    {0x05c, "AEGU"}, // backslash
    {0x05d, "AEDEDUAU"}, // ]
    {0x05e, "AJDFGJ"}, // ^
    {0x05f, "AUIU"}, // _
    {0x060, "AFCH"}, // `
    {0x061, "ALaJDJgJGMGS GNDNaNaSDSgSGP"}, // a
    {0x062, "AFAS AMaJDJhJhSDSaSAP"}, // b
    {0x063, "GLgJDJaJaSDSgSGQ"}, // c
    {0x064, "HFHS HMhJEJaJaSEShSHP"}, // d
    {0x065, "ANHNhJEJaJaSEShSHQ"}, // e
    {0x066, "FFcFCICS AJEJ"}, // f
    {0x067, "HJHShWDWaWAU HMhJEJaJaSEShSHP"}, // g
    {0x068, "AFAS AMaJgJGMGS"}, // h
    {0x069, "AJAS AEAF"}, // i
    {0x06a, "CJCTcWAW CECF"}, // j
    {0x06b, "AFAS GJAP CNGS"}, // k
    {0x06c, "AFAPaSCS"}, // l
    {0x06d, "AJAS AMaJfJFMFS FMfJkJKMKS"}, // m
    {0x06e, "AJAS AMaJgJGMGS"}, // n
    {0x06f, "aJhJhSaS"}, // o
    {0x070, "AJAW AMaJDJhJhSDSaSAP"}, // p
    {0x071, "HJHW HMhJEJaJaSEShSHP"}, // q
    {0x072, "AJAS AMaJEJ"}, // r
    {0x073, "GLgJDJaJaNDNgNgSDSaSAQ"}, // s
    {0x074, "CGCPcSFS AJFJ"}, // t
    {0x075, "AJAPaSgSGP GJGS"}, // u
    {0x076, "AJDSGJ"}, // v
    {0x077, "AJDSFKHSKJ"}, // w
    {0x078, "AJGS GJAS"}, // x
    {0x079, "AJDS GJDScWAW"}, // y
    {0x07a, "AJGJASGS"}, // z
    {0x07b, "EEcECGCKcMAMcMCOCScUEU"}, // {
    {0x07c, "AEAV"}, // |
    {0x07d, "AEcECGCKcMEMcMCOCScUAU"}, // }
    {0x07e, "ANbKEMhOIL"}, // ~
    {0x0a1, "AJAK ANAW"}, // ¡
    {0x0a2, "GLgJDJaJaSDSgSGQ DHDU"}, // ¢
    {0x0a3, "HHhFFFcFCJCPcSASHS AMFM"}, // £
    {0x0a4, "bJgJgObO AIBJ HIGJ APBO HPGO"}, // ¤
    {0x0a5, "AFELIF ELES BMHM BPHP"}, // ¥
    {0x0a6, "AEAK AOAU"}, // ¦
    {0x0a7, "GHgFDFaFaJDKgKgPDP DKaKaPDPgQgVDVaVAT"}, // §
    {0x0a9, "aGkGkRaR HKhJFJdJdOFOhOHN"}, // ©
    {0x0aa, "AGaFBFdFDHDK DIBIaIaKBKdKDJ AMDM"}, // ª
    {0x0ab, "DKANDQ HKENHQ"}, // «
    {0x0ac, "AMIMIP"}, // ¬
    {0x0ad, "AMFM"},
    {0x0ae, "aGkGkRaR DODJGJhJhLGLDL GLHO"}, // ®
    {0x0b0, "aFeFeJaJ"}, // °
    {0x0b1, "EGEO AKIK ARIR"}, // ±
    {0x0b2, "AGaFBFdFDGdIALDL"}, // ²
    {0x0b3, "AFDFBHdHdLBLaLAK"}, // ³
    {0x0b5, "AJAW APaSgSGP GJGS"}, // µ
    {0x0b6, "HUHFDFaFaMDMEM EFEU"}, // ¶
    {0x0b7, "ALBLBMAM"}, // ·
    {0x0b9, "AGBFBL"}, // ¹
    {0x0ba, "aFdFdJaJ ALDL"}, // º
    {0x0bb, "AKDNAQ EKHNEQ"}, // »
    {0x0bc, "AGBFBL JFBS JSJMGQKQ"}, // ¼
    {0x0bd, "AGBFBL JFBS HNhMIMkMKNkPHSKS"}, // ½
    {0x0be, "AFDFBHdHdLBLaLAK LFDS LSLMIQMQ"}, // ¾
    {0x0bf, "DJDK DNDPaRATaWDWgWGT"}, // ¿
    {0x0c6, "ASGFMF GFGSMS GLLL COGO"}, // Æ
    {0x0d0, "BFBSESjSjFEFBF ALFL"}, // Ð
    {0x0d7, "BJHP HJBP"}, // ×
    {0x0d8, "bFjFjSbS KEAT"}, // Ø
    {0x0de, "AFAS AIEIiIiPEPAP"}, // Þ
    {0x0df, "ASAIaFDFgFgKDKhKhSDSCS"}, // ß
    {0x0e6, "ALaJDJgJGN GNDNaNaSDSgSGPGN GNMNmJJJgJgSJSmSMQ"}, // æ
    {0x0f0, "aKhKhSaS HOHMhHCF CIGG"}, // ð
    {0x0f7, "AMIM EHEI EQER"}, // ÷
    {0x0f8, "bJiJiSbS JIAT"}, // ø
    {0x0fe, "AFAW AMaJDJhJhSDSaSAP"}, // þ
    {0x131, "AJAS"}, // ı
    {0x152, "MFEFaFaSESMS GFGS GLLL"}, // Œ
    {0x153, "aJgJgSaS GNMNmJJJgJgSJSmSMQ"}, // œ
    {0x300, "AFCH"},
    {0x301, "CFAH"},
    {0x302, "AHCFEH"},
    {0x303, "AHbEDGfIGF"},
    {0x304, "AGEG"},
    {0x306, "AFaHeHEF"},
    {0x307, "AFAG"},
    {0x308, "AFAG DFDG"},
    {0x30a, "aEdEdHaH"},
    {0x30b, "CFAH FFDH"},
    {0x30c, "AFCHEF"},
    {0x327, "BSBTdTdWAW"},
    {0x384, "BEAH"}, // ΄
    {0x385, "AFAG CEBH EFEG"}, // ΅
    {0x393, "HFAFAS"}, // Γ
    {0x394, "ASEFISAS"}, // Δ
    {0x398, "aFiFiSaS CLGL"}, // Θ
    {0x39b, "ASEFIS"}, // Λ
    {0x39e, "AFIF BLHL ASIS"}, // Ξ
    {0x3a0, "ASAFIFIS"}, // Π
    {0x3a3, "IFAFELASIS"}, // Σ
    {0x3a6, "EFES aHiHiPaP"}, // Φ
    {0x3a8, "EFES AFAJaNENiNIJIF"}, // Ψ
    {0x3a9, "ASCSCQaOAKaFEFiFIKiOGQGSIS"}, // Ω
    {0x3b1, "aJgJgSaS HJGNgSIS"}, // α
    {0x3b2, "AWAIaFDFgFgKDKhKhSDSaSAP"}, // β
    {0x3b3, "AJDRGJ DRDW"}, // γ
    {0x3b4, "aKgKgSaS GGgFEFbFBHbIEKGN"}, // δ
    {0x3b5, "GKgJDJaJaNDNEN DNaNaSDSgSGR"}, // ε
    {0x3b6, "AFGFaLAPaSDSgSGUgWEW"}, // ζ
    {0x3b7, "AJAS AMaJgJGMGW"}, // η
    {0x3b8, "aFgFgSaS ALGL"}, // θ
    {0x3b9, "AJAPaSCS"}, // ι
    {0x3ba, "AJAS GJAO CMGS"}, // κ
    {0x3bb, "AFbFCHHS ELAS"}, // λ
    {0x3be, "GFDFaFaKDKEK DKaKaSDSgSGUgWEW"}, // ξ
    {0x3c0, "AJIJ CJCS GJGS"}, // π
    {0x3c1, "AWANaJDJhJhSDSaSAO"}, // ρ
    {0x3c2, "GKgJDJaJaSDSgSGUgWEW"}, // ς
    {0x3c3, "aJgJgSaS DJIJ"}, // σ
    {0x3c4, "AJGJ DJDPdSFS"}, // τ
    {0x3c5, "AJAOaSgSGOGJ"}, // υ
    {0x3c6, "DFDW aJgJgSaS"}, // φ
    {0x3c7, "AJGW GJAW"}, // χ
    {0x3c8, "AJAOaSgSGOGJ DFDW"}, // ψ
    {0x3c9, "BJaJAOaSCSeSENeSGSiSIOiJHJ"}, // ω
    {0x402, "AFHF DFDS DNdKjKJNJQjTGT"}, // Ђ
    {0x404, "IIiFEFaFaSESiSIP ALFL"}, // Є
    {0x409, "ASbSCOCFHFHSKSnSnLKLHL"}, // Љ
    {0x40a, "AFAS ALHL HFHSKSnSnLKLHL"}, // Њ
    {0x40b, "AFHF DFDS DNdKjKJNJS"}, // Ћ
    {0x40f, "AFASISIF ESEV"}, // Џ
    {0x411, "HFAFASESiSiKEKAK"}, // Б
    {0x414, "AUASJSJU CSdODFHFHS"}, // Д
    {0x416, "FFFS AFFLKF ASFLKS"}, // Ж
    {0x417, "AIaFDFhFhLDLiLiSESaSAP"}, // З
    {0x418, "AFASIFIS"}, // И
    {0x41b, "ASbSCOCFIFIS"}, // Л
    {0x423, "AFEO IFEOdSBS"}, // У
    {0x426, "AFASHSHF HSISIV"}, // Ц
    {0x427, "AFAJaMDMIM IFIS"}, // Ч
    {0x428, "AFASKSKF FFFS"}, // Ш
    {0x429, "AFASKSKF FFFS KSLSLV"}, // Щ
    {0x42a, "AFCFCSGSkSkLGLCL"}, // Ъ
    {0x42b, "AFASDSgSgLDLAL JFJS"}, // Ы
    {0x42c, "AFASESiSiLELAL"}, // Ь
    {0x42d, "AIaFEFiFiSESaSAP DLIL"}, // Э
    {0x42e, "AFAS ALDL dFlFlSdS"}, // Ю
    {0x42f, "ISIFEFaFaMEMIM EMAS"}, // Я
    {0x431, "aJgJgSaS AOaGDGgGGE"}, // б
    {0x432, "AJASDSgSgNDNAN AJDJfJfNDN"}, // в
    {0x433, "FJAJAS"}, // г
    {0x434, "AUASHSHU BSCOCJGJGS"}, // д
    {0x436, "EJES AJENIJ ASENIS"}, // ж
    {0x437, "AKaJDJfJfNDNgNgSDSaSAQ"}, // з
    {0x438, "AJASGJGS"}, // и
    {0x43b, "ASbSBPCJGJGS"}, // л
    {0x43c, "ASAJEPIJIS"}, // м
    {0x43d, "AJAS GJGS ANGN"}, // н
    {0x43f, "ASAJGJGS"}, // п
    {0x442, "AJGJ DJDS"}, // т
    {0x444, "EFEW aJiJiSaS"}, // ф
    {0x446, "AJASGSGJ GSHSHU"}, // ц
    {0x447, "AJALaNCNGN GJGS"}, // ч
    {0x448, "AJASISIJ EJES"}, // ш
    {0x449, "AJASISIJ EJES ISJSJU"}, // щ
    {0x44a, "AJCJCSFSiSiNFNCN"}, // ъ
    {0x44b, "AJASCSfSfNCNAN HJHS"}, // ы
    {0x44c, "AJASDSgSgNDNAN"}, // ь
    {0x44d, "AKaJDJgJgSDSaSAQ CNGN"}, // э
    {0x44e, "AJAS ANDN dJjJjSdS"}, // ю
    {0x44f, "GSGJDJaJaNDNGN DNAS"}, // я
    {0x452, "BFBS AHFH BMbJhJHMHThWEW"}, // ђ
    {0x454, "GKgJDJaJaSDSgSGQ ANEN"}, // є
    {0x459, "ASbSBPCJGJGSISmSmNINGN"}, // љ
    {0x45a, "AJAS ANGN GJGSISmSmNINGN"}, // њ
    {0x45b, "BFBS AHFH BMbJhJHMHS"}, // ћ
    {0x45f, "AJASGSGJ DSDU"}, // џ
    {0x490, "ASAFHFHC"}, // Ґ
    {0x491, "ASAJFJFH"}, // ґ
    {0x2013, "AMHM"}, // –
    {0x2014, "AMLM"}, // —
    {0x2018, "AFBI"}, // ‘
    {0x2019, "BFAI"}, // ’
    {0x201c, "AFBI DFEI"}, // “
    {0x201d, "BFAI EFDI"}, // ”
    {0x201e, "BRAU ERDU"}, // „
    {0x2022, "aKdKdNaN BLCLCMBM"}, // •
    {0x2026, "ARBRBSAS FRGRGSFS KRLRLSKS"}, // …
    {0x20ac, "JIjFFFbFbSFSjSJP AKGK ANGN"}, // €
    {0x2190, "KMAM EIAMEQ"}, // ←
    {0x2191, "EFES AJEFIJ"}, // ↑
    {0x2192, "AMKM GIKMGQ"}, // →
    {0x2193, "EFES AOESIO"}, // ↓
    {0x2194, "AMKM DJAMDP HJKMHP"}, // ↔
    {0x2195, "EFES BIEFHI BPESHP"}, // ↕
    {0x2196, "IQAI AOAIGI"}, // ↖
    {0x2197, "AQII CIIIIO"}, // ↗
    {0x2198, "AIIQ IKIQCQ"}, // ↘
    {0x2199, "IIAQ AKAQGQ"}, // ↙
};

constexpr Composed kComposed[] = {
    {0x0a8, 0x308, 0x000}, {0x0af, 0x304, 0x000}, {0x0b4, 0x301, 0x000}, {0x0b8, 0x327, 0x000},
    {0x0c0, 0x041, 0x300}, {0x0c1, 0x041, 0x301}, {0x0c2, 0x041, 0x302}, {0x0c3, 0x041, 0x303},
    {0x0c4, 0x041, 0x308}, {0x0c5, 0x041, 0x30a}, {0x0c7, 0x043, 0x327}, {0x0c8, 0x045, 0x300},
    {0x0c9, 0x045, 0x301}, {0x0ca, 0x045, 0x302}, {0x0cb, 0x045, 0x308}, {0x0cc, 0x049, 0x300},
    {0x0cd, 0x049, 0x301}, {0x0ce, 0x049, 0x302}, {0x0cf, 0x049, 0x308}, {0x0d1, 0x04e, 0x303},
    {0x0d2, 0x04f, 0x300}, {0x0d3, 0x04f, 0x301}, {0x0d4, 0x04f, 0x302}, {0x0d5, 0x04f, 0x303},
    {0x0d6, 0x04f, 0x308}, {0x0d9, 0x055, 0x300}, {0x0da, 0x055, 0x301}, {0x0db, 0x055, 0x302},
    {0x0dc, 0x055, 0x308}, {0x0dd, 0x059, 0x301}, {0x0e0, 0x061, 0x300}, {0x0e1, 0x061, 0x301},
    {0x0e2, 0x061, 0x302}, {0x0e3, 0x061, 0x303}, {0x0e4, 0x061, 0x308}, {0x0e5, 0x061, 0x30a},
    {0x0e7, 0x063, 0x327}, {0x0e8, 0x065, 0x300}, {0x0e9, 0x065, 0x301}, {0x0ea, 0x065, 0x302},
    {0x0eb, 0x065, 0x308}, {0x0ec, 0x131, 0x300}, {0x0ed, 0x131, 0x301}, {0x0ee, 0x131, 0x302},
    {0x0ef, 0x131, 0x308}, {0x0f1, 0x06e, 0x303}, {0x0f2, 0x06f, 0x300}, {0x0f3, 0x06f, 0x301},
    {0x0f4, 0x06f, 0x302}, {0x0f5, 0x06f, 0x303}, {0x0f6, 0x06f, 0x308}, {0x0f9, 0x075, 0x300},
    {0x0fa, 0x075, 0x301}, {0x0fb, 0x075, 0x302}, {0x0fc, 0x075, 0x308}, {0x0fd, 0x079, 0x301},
    {0x0ff, 0x079, 0x308}, {0x106, 0x043, 0x301}, {0x107, 0x063, 0x301}, {0x10c, 0x043, 0x30c},
    {0x10d, 0x063, 0x30c}, {0x11a, 0x045, 0x30c}, {0x11b, 0x065, 0x30c}, {0x143, 0x04e, 0x301},
    {0x144, 0x06e, 0x301}, {0x147, 0x04e, 0x30c}, {0x148, 0x06e, 0x30c}, {0x150, 0x04f, 0x30b},
    {0x151, 0x06f, 0x30b}, {0x158, 0x052, 0x30c}, {0x159, 0x072, 0x30c}, {0x15a, 0x053, 0x301},
    {0x15b, 0x073, 0x301}, {0x160, 0x053, 0x30c}, {0x161, 0x073, 0x30c}, {0x170, 0x055, 0x30b},
    {0x171, 0x075, 0x30b}, {0x178, 0x059, 0x308}, {0x179, 0x05a, 0x301}, {0x17a, 0x07a, 0x301},
    {0x17b, 0x05a, 0x307}, {0x17c, 0x07a, 0x307}, {0x17d, 0x05a, 0x30c}, {0x17e, 0x07a, 0x30c},
    {0x386, 0x041, 0x384}, {0x388, 0x045, 0x384}, {0x389, 0x048, 0x384}, {0x38a, 0x049, 0x384},
    {0x38c, 0x04f, 0x384}, {0x38e, 0x059, 0x384}, {0x38f, 0x3a9, 0x384}, {0x390, 0x3b9, 0x385},
    {0x391, 0x041, 0x000}, {0x392, 0x042, 0x000}, {0x395, 0x045, 0x000}, {0x396, 0x05a, 0x000},
    {0x397, 0x048, 0x000}, {0x399, 0x049, 0x000}, {0x39a, 0x04b, 0x000}, {0x39c, 0x04d, 0x000},
    {0x39d, 0x04e, 0x000}, {0x39f, 0x04f, 0x000}, {0x3a1, 0x050, 0x000}, {0x3a4, 0x054, 0x000},
    {0x3a5, 0x059, 0x000}, {0x3a7, 0x058, 0x000}, {0x3aa, 0x049, 0x308}, {0x3ab, 0x059, 0x308},
    {0x3ac, 0x3b1, 0x384}, {0x3ad, 0x3b5, 0x384}, {0x3ae, 0x3b7, 0x384}, {0x3af, 0x3b9, 0x384},
    {0x3b0, 0x3c5, 0x385}, {0x3bc, 0x0b5, 0x000}, {0x3bd, 0x076, 0x000}, {0x3bf, 0x06f, 0x000},
    {0x3ca, 0x3b9, 0x308}, {0x3cb, 0x3c5, 0x308}, {0x3cc, 0x06f, 0x384}, {0x3cd, 0x3c5, 0x384},
    {0x3ce, 0x3c9, 0x384}, {0x400, 0x045, 0x300}, {0x401, 0x045, 0x308}, {0x403, 0x393, 0x301},
    {0x405, 0x053, 0x000}, {0x406, 0x049, 0x000}, {0x407, 0x049, 0x308}, {0x408, 0x04a, 0x000},
    {0x40c, 0x04b, 0x301}, {0x40d, 0x418, 0x300}, {0x40e, 0x423, 0x306}, {0x410, 0x041, 0x000},
    {0x412, 0x042, 0x000}, {0x413, 0x393, 0x000}, {0x415, 0x045, 0x000}, {0x419, 0x418, 0x306},
    {0x41a, 0x04b, 0x000}, {0x41c, 0x04d, 0x000}, {0x41d, 0x048, 0x000}, {0x41e, 0x04f, 0x000},
    {0x41f, 0x3a0, 0x000}, {0x420, 0x050, 0x000}, {0x421, 0x043, 0x000}, {0x422, 0x054, 0x000},
    {0x424, 0x3a6, 0x000}, {0x425, 0x058, 0x000}, {0x430, 0x061, 0x000}, {0x435, 0x065, 0x000},
    {0x439, 0x438, 0x306}, {0x43a, 0x3ba, 0x000}, {0x43e, 0x06f, 0x000}, {0x440, 0x070, 0x000},
    {0x441, 0x063, 0x000}, {0x443, 0x079, 0x000}, {0x445, 0x078, 0x000}, {0x450, 0x065, 0x300},
    {0x451, 0x065, 0x308}, {0x453, 0x433, 0x301}, {0x455, 0x073, 0x000}, {0x456, 0x069, 0x000},
    {0x457, 0x131, 0x308}, {0x458, 0x06a, 0x000}, {0x45c, 0x3ba, 0x301}, {0x45d, 0x438, 0x300},
    {0x45e, 0x079, 0x306},
};
// clang-format on

constexpr char kBox[] = "AFIFISASAF";
constexpr int kBlankRight = 3; ///< a space is as wide as a narrow letter
constexpr uint16_t kTonos = 0x384;

template <typename Row, size_t N>
constexpr bool ascending(const Row (&rows)[N]) {
    for (size_t i = 1; i < N; ++i)
        if (rows[i - 1].code >= rows[i].code)
            return false;
    return true;
}
static_assert(ascending(kGlyphs) && ascending(kComposed), "looked up by halving");

template <typename Row, size_t N>
const Row* find(const Row (&rows)[N], uint32_t code) {
    const Row* const row =
        std::lower_bound(std::begin(rows), std::end(rows), code, [](const Row& r, uint32_t c) { return r.code < c; });
    return row != std::end(rows) && row->code == code ? row : nullptr;
}

/// The columns and the first row that a glyph's points take.
struct Extent {
    int left = 99;
    int right = 0;
    int top = 99;

    explicit Extent(const char* strokes) {
        for (; *strokes; ++strokes) {
            if (*strokes == ' ')
                continue;
            const int x = (*strokes | 0x20) - 'a';
            const int y = *++strokes - 'A';
            left = std::min(left, x);
            right = std::max(right, x);
            top = std::min(top, y);
        }
    }
};

GlyphShape simple(const char* strokes) {
    GlyphShape shape;
    shape.part[0].strokes = strokes;
    shape.right = Extent(strokes).right;
    return shape;
}

GlyphShape with_mark(const char* strokes, uint16_t mark) {
    GlyphShape shape = simple(strokes);
    const char* const accent = find(kGlyphs, mark)->strokes;
    const Extent letter(strokes);
    const Extent over(accent);
    const bool tall = letter.top < kSmallTop;
    shape.part[1].strokes = accent;
    // Centred above the letter; twice the distance between the middles is whole, half a column goes right.
    int dx = (letter.left + letter.right - over.left - over.right + 1) >> 1;
    if (tall && mark == kTonos)
        dx = -over.right - 2; // stands before a capital
    else if (tall && over.top < kSmallTop)
        shape.part[1].dy = std::max(kCapTop - kSmallTop, 1 - over.top); // row 0 is for thick pens
    const int wider = std::max(0, -dx - over.left); // what stands out on the left moves the letter
    shape.part[0].dx = wider;
    shape.part[1].dx = dx + wider;
    shape.right = std::max(letter.right, dx + over.right) + wider;
    return shape;
}

} // namespace

bool has_glyph(uint32_t code) { return code == ' ' || code == 0xa0 || find(kGlyphs, code) || find(kComposed, code); }

GlyphShape find_glyph(uint32_t code) {
    if (code == ' ' || code == 0xa0) {
        GlyphShape blank;
        blank.right = kBlankRight;
        return blank;
    }
    if (const Glyph* const glyph = find(kGlyphs, code))
        return simple(glyph->strokes);
    if (const Composed* const composed = find(kComposed, code)) {
        const char* const base = find(kGlyphs, composed->base)->strokes;
        return composed->mark ? with_mark(base, composed->mark) : simple(base);
    }
    return simple(kBox);
}

uint32_t next_character(const char*& text) {
    const auto byte = [&](int i) { return static_cast<uint8_t>(text[i]); };
    const uint8_t lead = byte(0);
    if (lead < 0x80) {
        ++text;
        return lead;
    }
    const int length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
    constexpr uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    uint32_t code = lead & (0x7f >> length);
    bool sound = lead >= 0xc0 && lead < 0xf8;
    for (int i = 1; sound && i < length; ++i) { // the zero at the end is no continuation: nothing beyond it is read
        sound = (byte(i) & 0xc0) == 0x80;
        code = code << 6 | (byte(i) & 0x3f);
    }
    if (!sound || code < kSmallest[length] || code > 0x10ffff || (code >= 0xd800 && code < 0xe000)) {
        ++text;
        return kBadByte;
    }
    text += length;
    return code;
}

} // namespace tavi
