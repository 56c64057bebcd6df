#pragma once

#include "host/application/Constants.h"
#include "host/application/JobTypeInfo.h"
#include "host/application/TrovikObject.h"
#include "host/foundation/Path.h"
#include "host/foundation/UID.h"

#include <map>
#include <memory>
#include <vector>

struct ExpansionSource;

class Distributor;
class Job;

/// States of a job or a piece of work. 5 and 7 are also the results of
/// CheckResult; the numbers are a contract with modules.
enum JobStatus : int {
  k_StatusNew = 0,
  k_StatusReady = 1,
  k_StatusRunning = 2,
  k_StatusPaused = 3,
  k_StatusFailed = 5,
  k_StatusCanceled = 6,
  k_StatusFinished = 7,
};

/// Hears what a running piece of work tells the host. Called in the thread
/// that runs the job, synchronously.
class WorkObserver {
public:
  virtual ~WorkObserver() = default;
  /// A parameter of the work changed, above all its note.
  virtual void OnWorkParameter(const Job& /*job*/, const String& /*name*/, const String& /*value*/) {}
  /// The program named an image file; absolute where the start directory is.
  virtual void OnImage(const Job& /*job*/, const Path& /*file*/) {}
  /// The host's own look into a file that exists, is fresh and holds
  /// something: what is wrong with it ("Truncated image (...)"), or empty.
  virtual String OnCheckFile(const Job& /*job*/, const Path& /*file*/) { return {}; }
};

/// A job of any kind: its type, its parameters and its state. One object
/// serves one thread at a time.
class Job : public TrovikObject {
public:
  ~Job() override;

  // The virtual operations stand in the order that compiled modules expect.

  /// Works off this piece of work here and now; returns a JobStatus.
  virtual int Execute() = 0;
  /// Ends a running piece of work: 0 asks it to end, 1 kills it.
  virtual void Interrupt(int how) = 0;
  /// How the job is cut into works. Raises Exception* for a malformed range.
  virtual std::unique_ptr<Distributor> DoGetDistributor() = 0;
  /// Whether the job can be worked: a registered type, a value for every
  /// required parameter, and every value that users set one of its kind. Why
  /// not is then in the note.
  virtual bool IsValid();
  /// Writes the type ID, then the values of the host's parameters.
  virtual void PackObject(OutStream& out) const;
  /// Reads what PackObject wrote, replacing all of it. `version` is that of
  /// the enclosing stream; there is one so far.
  virtual void UnpackObject(InStream& in, unsigned int version);
  /// A parameter's own value, as text; false when the job has no such
  /// parameter.
  virtual bool GetParameter(const String& name, String& value) const;
  virtual bool SetParameter(const String& name, const String& value);
  /// Takes over the other job's type and parameters; with `withState` also
  /// its status, note and sub-range.
  virtual void Copy(SmartHandle<const Job> other, bool withState);
  /// A work takes over its job's parameters and keeps what is its own.
  virtual void UpdateFromParent(SmartHandle<const Job> parent);
  /// Runs a named command. True when it was handled.
  virtual bool ProcessCommand(const String& command, void* context);
  /// A parameter of a work of this job changed.
  virtual void OnChildChange(SmartHandle<const Job> child, const String& name, const String& value) = 0;
  /// Makes a whole job of a work: its job's parameters, no sub-range, ready.
  virtual void ConvertWorkToParent(SmartHandle<const Job> parent);
  /// What a JobStatus means. Started: running, paused or ended. Finished:
  /// ended well.
  virtual bool IsStarted(int status) const;
  virtual bool IsFinished(int status) const;
  virtual bool IsFailed(int status) const;
  virtual bool IsCanceled(int status) const;
  virtual bool IsPaused(int status) const;
  /// "Ready", "Running" and so on; "Unknown" for any other number.
  virtual String StatusAsString(int status) const;
  virtual void SetFinished();
  virtual void SetType(const UID& type);

  const UID& Type() const { return m_Type; }
  int Status() const { return m_Status; }
  void SetStatus(int status) { m_Status = status; }

  /// Not owned; null for none. Must outlive its use.
  void SetObserver(WorkObserver* observer) { m_Observer = observer; }

  /// The effective value of a parameter: the job's own if not empty, else the
  /// engine's type option (section: the type's ID, key: the name) where
  /// `allowOption`, else the default of the type's description where
  /// `allowDefault`. Not expanded.
  String GetParameterOrOption(const String& name, bool allowOption, bool allowDefault) const;

  /// The text with its $(...) references replaced, see Expansion.h. Raises
  /// Exception* for a reference that nobody answers, a malformed one or a
  /// cycle, with column and suggestion.
  String FormatStringWithParameters(const String& text) const;

  /// The same for a text that is no command line; messages begin with `what`.
  String ExpandText(const String& text, const String& what) const;

  /// The same with the values of a map, for text that becomes a parameter's
  /// text again: references that the map does not answer stay as written.
  static String FormatStringWithParameters(const String& text, const std::map<String, String>& parameters);

  /// Applies parameter commands ("Leaf.Enquote", with arguments in
  /// parentheses) to a value. The job serves commands that need one; the
  /// description, which may be null, those that take a list text by text.
  /// Raises Exception* for an unknown command.
  static String ProcessParameterNameCommands(const String& value, const String& commands,
                                             SmartHandle<const Job> job, const ParameterInfo* info);

  /// Tells the observer that a parameter of the current work changed.
  void DoWorkParameterChange(const String& name, const String& value);

  /// Names that this job may be asked for, for suggestions: its type's
  /// parameters and the computed ones.
  std::vector<String> ParameterNames() const;

protected:
  Job();

  /// What the job answers for references, for as long as it lives; messages
  /// begin with `what`.
  ExpansionSource References(const String& what) const;

  /// The scene as the user gave it.
  String StoredScene() const { return Get(p_Scene, true); }
  WorkObserver* Observer() const { return m_Observer; }

private:
  String OptionOrDefault(const String& name, bool allowOption, bool allowDefault) const;

  static const StateTable s_StateTable;

  UID m_Type;
  int m_Status = k_StatusNew;
  WorkObserver* m_Observer = nullptr;
};
