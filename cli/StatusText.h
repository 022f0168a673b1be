#pragma once

#include <QString>

// The meaning of a record's status in words.
namespace StatusText {
QString meaning(int status);
}
