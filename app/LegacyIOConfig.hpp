#pragma once

/// Sets the device I/O library up for this application: tells it which application it runs in. "Legacy I/O" is what the
/// application's developers call that library, which is older than the tool and serves other programs as well.
class LegacyIOConfig {
  public:
    /// Hands the library the application's metadata: name and version from the bundle ("Trovik App" and "1.0" where it
    /// says nothing), the rest as it always was. Once, at launch, before any device I/O. A failure is a mistake of the
    /// program and ends the process. Main thread only.
    static void configureMetaData() noexcept;
};
