#pragma once

// The exception types of the environment that the library is loaded into. The library only
// constructs and throws them; a host catches them by these names, so they are visible across
// shared-object borders.

#include <exception>
#include <string>
#include <utility>

namespace Veld {

/// What went wrong, where in the sources, and in which component.
class __attribute__((visibility("default"))) Exception : public std::exception {
public:
    Exception(std::string component, std::string sourceFile, std::string revision, int sourceLine,
              std::string message)
        : m_component(std::move(component)),
          m_sourceFile(std::move(sourceFile)),
          m_revision(std::move(revision)),
          m_sourceLine(sourceLine),
          m_message(std::move(message)) {}

    /// The message alone; it lives as long as the exception.
    const char* what() const noexcept override { return m_message.c_str(); }

    const std::string& getComponent() const { return m_component; }
    const std::string& getSourceFile() const { return m_sourceFile; }
    const std::string& getRevision() const { return m_revision; }
    int getSourceLine() const { return m_sourceLine; }
    const std::string& getMessage() const { return m_message; }

private:
    std::string m_component;   // subsystem of the host that the thrower counts as
    std::string m_sourceFile;  // without extension, the same in every release
    std::string m_revision;    // revision identification of that source
    int m_sourceLine;
    std::string m_message;  // text for the user
};

}  // namespace Veld
