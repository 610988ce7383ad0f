#pragma once

#include <optional>
#include <string>
#include <string_view>

// How the files the host identity reads become its values; the rules are in
// docs/host-identity.md. Pure functions over file contents, so that unit
// tests and the fuzz target reach them without the files.

// The PRETTY_HOSTNAME of an /etc/machine-info text (environment-file syntax:
// KEY=VALUE lines, "#" comments, values optionally in single or double
// quotes, backslash escapes in double quotes). Nothing when it is absent or
// empty, or when the value is not valid UTF-8 or holds a control character.
std::optional<std::string> VNMachineInfoPrettyHostname(std::string_view text);

// A one-value kernel or firmware file's text: up to the first newline or NUL,
// surrounding spaces and tabs removed. Empty when that leaves nothing, or
// when the value is not valid UTF-8 or holds another control character.
std::string VNSysfsText(std::string_view raw);

// The model identifier from the firmware's product name and version (each
// already VNSysfsText): "NAME VERSION", or NAME alone when the version is
// empty, repeats the name or is one of the placeholders firmware writers
// leave in it. Empty when the name is empty.
std::string VNModelIdentifierFromFirmware(std::string_view name, std::string_view version);

// The chassis word (the vocabulary of systemd's hostnamed: "desktop",
// "laptop", "convertible", "server", "tablet", "handset", "embedded") of a
// firmware chassis-type number. Nothing for numbers without one and for
// anything that is not a decimal number.
std::optional<std::string> VNChassisOfFirmwareType(std::string_view raw);
