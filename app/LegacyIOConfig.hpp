#pragma once

/// Sets the device I/O library up for this application.
class LegacyIOConfig {
  public:
    /// Hands the library the application's metadata: name and version from the bundle ("Trovik App" and "1.0" where it
    /// says nothing), the rest as it always was. Once, at launch, before any device I/O. A failure is a mistake of the
    /// program and ends the process. Main thread only.
    static void configureMetaData() noexcept;
};
