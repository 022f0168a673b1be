#pragma once

// Reads a gateway configuration file (TOML) into a GatewayConfig and checks
// it whole. Every error is one line "file:line:column: message"; as many as
// can be found are reported at once, so one run of --check shows them all.
#include "GatewayConfig.h"

#include <QString>
#include <QStringList>

namespace ConfigLoader {

// Reads `file`. Relative paths inside it (password_file, the TLS files, the
// buffer and the library) count from the directory of the file.
bool load(const QString &file, GatewayConfig *config, QStringList *errors);
// The same for a text already read; `file` names it in messages and gives
// the directory relative paths count from.
bool parse(const QByteArray &text, const QString &file, GatewayConfig *config, QStringList *errors);

} // namespace ConfigLoader
