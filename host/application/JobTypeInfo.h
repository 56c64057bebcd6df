#pragma once

#include "host/application/ParameterInfo.h"
#include "host/foundation/IniFile.h"
#include "host/foundation/UID.h"

#include <memory>
#include <vector>

/// A named command of a job type, which a user may call on a job.
struct CommandInfo {
  String Name;
  String Label;
  String Help;
  String Command; ///< the command line, with its references
};

/// The description of one job type: what a form shows and what jobs know.
class JobTypeInfo {
public:
  String Name;
  String Help;
  String Details;

  JobTypeInfo() = default;
  JobTypeInfo(const JobTypeInfo&) = delete;
  JobTypeInfo& operator=(const JobTypeInfo&) = delete;
  JobTypeInfo(JobTypeInfo&&) = default;
  JobTypeInfo& operator=(JobTypeInfo&&) = default;

  /// Adds a name by which the type can be chosen. Nothing is filtered.
  void AddAlias(const String& alias) { m_Aliases.push_back(alias); }
  const std::vector<String>& Aliases() const { return m_Aliases; }

  /// Appends a parameter and returns it for filling; owned here, and never
  /// moved while this description lives.
  ParameterInfo* NewParam(ParameterInfo::TYPE type);

  /// The parameter of a name (in any case; the first of several), or null.
  ParameterInfo* GetParam(const String& name) const;
  /// The parameter at a position, or null.
  ParameterInfo* GetParam(unsigned long position) const;
  // A literal 0 would fit both a position and a null text.
  ParameterInfo* GetParam(int position) const { return GetParam(static_cast<unsigned long>(position)); }
  std::size_t ParamCount() const { return m_Params.size(); }

  void AddCommand(CommandInfo command) { m_Commands.push_back(std::move(command)); }
  const std::vector<CommandInfo>& Commands() const { return m_Commands; }
  const CommandInfo* GetCommand(const String& name) const;

  /// Whether users see the type without asking for it.
  bool Enabled = true;

private:
  std::vector<String> m_Aliases;
  std::vector<std::unique_ptr<ParameterInfo>> m_Params;
  std::vector<CommandInfo> m_Commands;
};

/// Reads the definition of a parameter from the section of its name and
/// appends it. The keys are Type, Label, Help, Default, Flags, Filter,
/// Minimum, Maximum, Choices and Required; docs/tvx.md tells them. What is
/// wrong is logged as a warning "file:line:column: warning: ..." and read as
/// if it were not there; a name without a section appends nothing.
void SLoadParameter(const String& name, IniFile& file, JobTypeInfo* info);

/// Reads the definition of a command: Label, Help, Command.
void SLoadCommand(const String& name, IniFile& file, JobTypeInfo* info);

/// The bit of a flag name (any case, blanks around it), or the value of a
/// number such as 0xE0A; an unknown name is 0 with a warning in the log.
unsigned int STranslateFlag(const String& name);
std::vector<String> FlagNames();
/// The names of the bits that are set, joined with ", ".
String FlagsAsText(unsigned int flags);

/// The message form that editors understand: "file:line:column: warning: text".
String PlacedMessage(const Path& file, TextPlace place, const String& severity, const String& text);
