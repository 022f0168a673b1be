#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>

// A memory image in which every value names the controller, area and element
// it comes from, so that a value read under the wrong tag, from the wrong
// controller, shifted by some bytes, or a zero standing in for a missing
// reply never passes for the right one. No element holds 0 except bits.
//
// Elements count from 1, as tags do. By the group of the area:
// - 4-byte word areas (AI, AI_F, AI_S, AO, NAI, NAO, HAI, LA, LW), and AO_F
//   and AO_S, which have no group of their own: the int32 at byte address
//   4*(element-1), least significant byte first, is word() =
//   controller*10000000 + area*100000 + element. For controller 7: AI3 holds
//   70700003, NAO1000 holds 71801000.
// - 2-byte pair areas: SA (320 elements) holds the uint16 controller*320 +
//   element at byte address 2*(element-1), from 1 (controller 0, SA1) to
//   64000 (controller 199, SA320): unique among all controllers, and
//   (value-1)/320 is the controller. Custom has a million pairs, more than 16
//   bits can name, so its pairs hold a mixed 16-bit value of (controller,
//   area, element) from 1 to 65535: neighbours differ, runs do not repeat.
// - bit areas (one byte per element on the wire): 0 or 1, one bit of a mix of
//   (controller, area, element), so any run of some dozen elements is
//   unlike the same run at another address or of another controller.
// - the string area SI: block n (256 bytes at 256*(n-1)) holds the text
//   "c<controller> SI<n>" behind its length byte, e.g. 07 "c7 SI2", then
//   zeros to the end of the block.
namespace SimSelfDescribing {

constexpr int kLastController = 199;

qint32 word(int controller, int area, int element);
quint16 pair(int controller, int area, int element);
bool bit(int controller, int area, int element);
QString text(int controller, int block);

// Exactly what a filled memory holds at [byteAddress, byteAddress + length)
// of the area, as the frames address it; empty when the range does not lie
// wholly inside the area.
QByteArray bytes(int controller, int area, int byteAddress, int length);

} // namespace SimSelfDescribing
