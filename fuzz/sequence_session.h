// One file that a sequence of operations is done to, and what must hold of it.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>
#include <tiffio.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "fuzz/gateway_session.h"
#include "fuzz/sequence_files.h"
#include "fuzz/sequence_model.h"
#include "fuzz/switches.h"

namespace tb::fuzz {

// Where the handle stands.
enum class Place { kPage, kSubPage, kNew };

// What a session does: anything in any mode, or writing a new file only.
enum class Repertoire { kAnything, kWriting };

class Session {
 public:
  // Opens `contents`, which were made of `start` and may be damaged unless they are `whole`.
  Session(FuzzedDataProvider& header, const StartingFile& start, const Bytes& contents, bool whole,
          Repertoire repertoire = Repertoire::kAnything);
  // Closes the file and checks it.
  ~Session() { close(false); }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  bool isOpen() const { return file_ != nullptr; }
  // Does the one operation that the input chooses.
  void step(FuzzedDataProvider& input);

 private:
  using Step = void (Session::*)(FuzzedDataProvider&);
  struct Row {
    const char* name;
    Step run;
    bool needsImage = false;
  };
  static const Row kRows[];
  static const Row kWritingRows[];

  Row anyRow(FuzzedDataProvider& input) const;
  void open(const char* mode);
  void close(bool byCleanup);
  bool isOff(const char* operation) const {
    return fuzz::isOff(operation) || fuzz::isOff(std::string(operation) + "@" + mode_);
  }
  Outcome run(const char* operation, std::initializer_list<const vxArray*> inputs);

  void setField(FuzzedDataProvider& input);
  void setAnything(FuzzedDataProvider& input);
  void layOut(FuzzedDataProvider& input);
  void setDirectory(FuzzedDataProvider& input);
  void readDirectory(FuzzedDataProvider& input);
  void setSubDirectory(FuzzedDataProvider& input);
  void readBlock(FuzzedDataProvider& input);
  void readRgba(FuzzedDataProvider& input);
  void writeBlock(FuzzedDataProvider& input);
  void writeAnything(FuzzedDataProvider& input);
  void rewriteDirectory(FuzzedDataProvider& input);
  void writeDirectory(FuzzedDataProvider& input);
  void reopen(FuzzedDataProvider& input);
  void query(FuzzedDataProvider& input);

  void store(int tag, const vxArray* value);
  bool move(const char* operation, std::initializer_list<const vxArray*> inputs);
  std::vector<std::string> observed();
  Expected& current();
  void noteLayoutEdit();
  void noteWritten(const Outcome& outcome);
  bool isReadOnly() const { return mode_.starts_with("r") && !mode_.starts_with("r+"); }
  void leave();
  void forgetCurrentValues();
  bool isBlank() {
    return (!mode_.starts_with("r") || mode_.starts_with("r+")) &&
           !attempt("getField", {file_.get(), number(TIFFTAG_PHOTOMETRIC).get()}).error.empty();
  }
  std::uint32_t anyBlock(FuzzedDataProvider& input);
  bool isTiled() { return scalarOr(call("isTiled", {file_.get()}), 0) != 0; }
  double blockCount() {
    return scalarOr(call(isTiled() ? "numberOfTiles" : "numberOfStrips", {file_.get()}), 0);
  }

  const Repertoire repertoire_;
  bool isPristine_ = true;  // nothing was done to the file
  MemoryFile contents_;
  bool modelled_;  // the file is one of which something can be said
  std::string mode_;
  vxArrayPtr file_;
  bool limited_ = false;    // the step runs with little room in the file
  std::size_t memory_ = 0;  // the step's calls run with this memory limit
  Place place_ = Place::kPage;
  std::size_t page_ = 0;
  std::vector<Expected> pages_;
  Expected new_;
  bool awaitsSubPages_ = false;  // what is written next may become a sub-directory
  bool isSpoilt_ = false;        // nothing more can be written through the handle
};

}  // namespace tb::fuzz
