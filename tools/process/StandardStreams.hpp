#pragma once

/// Opens /dev/null in place of each standard stream that is closed, so that no file and no socket
/// gets its number. Writing to it fails. Call it first in main.
void occupyStandardStreams();
