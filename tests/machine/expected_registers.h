#pragma once

/// The register file as programs and hosts rely on it, written down apart from the vocabulary.

namespace qz_test {

/// In the order of lookup: name, number, first letter of the class, and the value at the start:
/// an integer, a real, a bare word ("w" behind it) or the number of threads.
inline constexpr const char* expected_registers = R"(
EAP:105:P:0 EIP:103:P:0 CBO:106:P:0 CBU:108:P:0 CPR:109:P:0 CBP:107:P:0 EXT0:111:P:0
EXT1:112:P:0 EDP:104:P:0 FMT:1:U:0 SNK:102:U:0 OPT:2:U:0 REP:3:U:0 INF:4:U:0 GRA:43:U:0
CEN:73:U:0 GPX:0:U:0 SEED:72:U:0 DEV:5:U:0 MIO:6:U:1000 MIL:7:U:1000 KXX:8:U:4 DEG:9:U:8
TXX:11:U:1 GNU:12:U:10 GBR:13:U:10 GRE:14:U:10 OMP:46:U:threads GVX:53:U:0 ONE:69:U:0
DIM:59:U:0 GEX:54:U:0 PPX:15:B:0 PGX:16:B:0 YYC:96:B:0 HED:17:B:1 DRP:18:B:0 NOOP:44:B:0
DRY:19:B:0 RST:20:B:0 RET:21:B:0 LSN:23:U:2 COL:24:U:0 DBG:25:U:1 OVW:47:B:0 SEP:26:C:44
MIS:27:C:63 LAM:28:R:0.0 ELAM:100:R:0.0 EPL:29:R:1e-06 EPO:30:R:1e-06 STP:31:R:0.0
SDE:45:R:1.0 PEL:92:R:0.0 MVA:32:R:255w OVA:33:R:0.0 GP0:48:R:0.0 GP1:49:R:0.0
GP2:50:R:0.0 RND:60:R:0.0 UNI:61:R:0.0 RES:51:R:0.0 RNU:34:U:0 LNN:62:U:0 MFN:38:S:0
DFN:40:S:0 OTHERFN:97:S:0 GFN:39:S:0 GPS:63:S:0 NAM:95:S:0 MPT:36:P:0 GPT:37:P:0
DPT:10:P:0 LPT:52:P:0 PPT:71:P:0 HPT:66:P:0 GP3:55:R:0.0 GP4:56:R:0.0 GP5:57:R:0.0
GP6:64:R:0.0 BRR:58:U:0 NXX:65:U:0 GP7:67:R:0.0 GP8:68:R:0.0 GP9:70:R:0.0 HP0:74:R:0.0
HP1:75:R:0.0 HP2:76:R:0.0 HP3:77:R:0.0 HP4:78:R:0.0 HP5:79:R:0.0 HP6:80:R:0.0 HP7:81:R:0.0
HP8:82:R:0.0 HP9:83:R:0.0 LFN:85:S:0 ITR:89:U:0 NLL:87:R:0.0 NNZ:86:U:0 IDX:41:U:3
VAL:42:U:5 RTT:90:U:0 NAB:91:R:0.0 ERR:88:R:0.0 LNZ:93:R:0.0 PAM:101:R:0.1 INI:99:B:1
TREE:110:B:0 SLW:94:B:0
)";

}  // namespace qz_test
