#include "core/open_files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tiffio.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "gateway/cleanup.h"
#include "host/tiff_utilities.h"
#include "runtime/reporting.h"
#include "tests/support/gateway_call.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/tiff_files.h"

namespace tb::test {
namespace {

using testing::IsEmpty;

class FileId : public testing::Test {
 protected:
  FileId() { writeTiff(path_, {Layout{}}); }

  // Opens and leaves it to the test to close.
  vxArrayPtr open() const { return call("open", path_, "r"); }
  static std::uint64_t addressIn(const vxArrayPtr& id) {
    std::uint64_t address = 0;
    std::memcpy(&address, vxGetData(id.get()), sizeof address);
    return address;
  }

  TemporaryFolder folder_;
  std::filesystem::path path_ = folder_ / "gray.tif";
};

std::size_t openDescriptors() {
  const std::filesystem::directory_iterator first("/proc/self/fd"), last;
  return static_cast<std::size_t>(std::distance(first, last));
}

TEST_F(FileId, IsAScalarOfClassUint64ThatHoldsTheHandle) {
  const OpenedFile file(path_, "r");
  EXPECT_EQ(vxGetClassID(file.id().get()), vxUINT64);
  EXPECT_EQ(dimensionsOf(file.id()), (Dimensions{1, 1}));
  EXPECT_STREQ(TIFFFileName(file.handle()), path_.c_str());
}

// Every operation that takes a file, with inputs that are wrong otherwise: the identifier is looked
// at first.
struct FileOperation {
  std::string name;
  int inputsAfterTheFile;
};
const std::vector<FileOperation> kFileOperations = {
    {"computeStrip", 1},     {"computeTile", 1},     {"currentDirectory", 0},
    {"getField", 1},         {"isTiled", 0},         {"lastDirectory", 0},
    {"numberOfStrips", 0},   {"numberOfTiles", 0},   {"readDirectory", 0},
    {"readEncodedStrip", 1}, {"readEncodedTile", 1}, {"readRGBAStrip", 1},
    {"readRGBATile", 2},     {"readRGBAImage", 0},   {"rewriteDirectory", 0},
    {"retrieveMetadata", 0}, {"setDirectory", 1},    {"setField", 2},
    {"setSubDirectory", 1},  {"writeDirectory", 0},  {"writeEncodedStrip", 2},
    {"writeEncodedTile", 2}, {"close", 0},
};

void callWithFile(const FileOperation& operation, const Input& file) {
  Inputs inputs{operation.name, file};
  for (int i = 0; i < operation.inputsAfterTheFile; ++i) inputs.emplace_back(-1);
  callGateway(1, inputs);
}

TEST_F(FileId, ZeroIsBadForEveryOperation) {
  for (const FileOperation& operation : kFileOperations) {
    SCOPED_TRACE(operation.name);
    expectError<Tiff::badFileId>({}, [&] { callWithFile(operation, 0); });
    expectError<Tiff::badFileId>({}, [&] { callWithFile(operation, scalar<std::uint64_t>(0)); });
  }
}

TEST_F(FileId, ForgedOneIsInvalidForEveryOperationButClose) {
  for (const FileOperation& operation : kFileOperations) {
    SCOPED_TRACE(operation.name);
    const auto act = [&] { callWithFile(operation, 12345); };
    if (operation.name == "close") {
      EXPECT_NO_THROW(act());
    } else {
      expectError<Tiff::invalidFileId>({}, act);
    }
  }
}

TEST_F(FileId, StaleOneIsInvalidForEveryOperationButClose) {
  OpenedFile file(path_, "r");
  file.close();
  for (const FileOperation& operation : kFileOperations) {
    SCOPED_TRACE(operation.name);
    if (operation.name != "close")
      expectError<Tiff::invalidFileId>({}, [&] { callWithFile(operation, file); });
  }
}

TEST_F(FileId, OfAnyArrayTooShortOrWithoutNumbersIsZero) {
  const vxArrayPtr ids[] = {row({}),  zeros(vxUINT8, {1, 1}),  zeros(vxCELL, {1, 1}), structure(),
                            text(""), zeros(vxLOGICAL, {0, 3})};
  for (const vxArrayPtr& id : ids) {
    SCOPED_TRACE(vxGetClassName(id.get()));
    expectError<Tiff::badFileId>({}, [&] { call("isTiled", id); });
  }
}

TEST_F(FileId, ShorterThanAHandleIsExtendedWithZeros) {
  expectError<Tiff::invalidFileId>({}, [] { call("isTiled", scalar<std::uint8_t>(7)); });
}

TEST_F(FileId, IsAcceptedInAnyClassWithTheSameBytes) {
  const OpenedFile file(path_, "r");
  const std::vector<std::byte> bytes = bytesOf(file.id());
  const vxArrayPtr carriers[] = {zeros(vxDOUBLE, {1, 1}), zeros(vxUINT8, {8, 1}),
                                 zeros(vxCHAR, {1, 4}), zeros(vxINT32, {3, 3})};
  for (const vxArrayPtr& carrier : carriers) {
    SCOPED_TRACE(vxGetClassName(carrier.get()));
    std::ranges::copy(bytes, static_cast<std::byte*>(vxGetWritableData(carrier.get())));
    EXPECT_EQ(numberFrom("currentDirectory", carrier), 1);
  }
}

TEST_F(FileId, ClosingTwiceIsSilent) {
  const std::size_t before = openDescriptors();
  const vxArrayPtr id = open();
  EXPECT_EQ(openDescriptors(), before + 1);
  call("close", id);
  EXPECT_EQ(openDescriptors(), before);
  EXPECT_NO_THROW(call("close", id));
  EXPECT_THAT(warnings(), IsEmpty());
}

TEST_F(FileId, OpeningTwiceGivesTwoHandlesThatCloseApart) {
  const OpenedFile first(path_, "r");
  OpenedFile second(path_, "r");
  EXPECT_NE(addressIn(first.id()), addressIn(second.id()));
  second.close();
  EXPECT_EQ(numberFrom("currentDirectory", first), 1);
  expectError<Tiff::invalidFileId>({}, [&] { call("currentDirectory", second); });
}

// --- The services that other code of the host may use

TEST_F(FileId, RegisteringMakesAHandleKnownToTheModule) {
  const TiffHandle tif = openTiff(path_, "r");
  const vxArrayPtr id = packUpTiffFileId(tif.get());
  EXPECT_TRUE(TiffFilePointerIsInvalid(tif.get()));
  EXPECT_EQ(getFileID(id.get()), tif.get()) << "this one does not ask the registry";

  TiffAtExitRegister(tif.get());
  TiffAtExitRegister(tif.get());
  EXPECT_FALSE(TiffFilePointerIsInvalid(tif.get()));
  EXPECT_EQ(numberFrom("currentDirectory", id), 1);

  TiffAtExitUnregister(tif.get());
  EXPECT_TRUE(TiffFilePointerIsInvalid(tif.get())) << "one registration, however often it is asked";
  EXPECT_NO_THROW(TiffAtExitUnregister(tif.get()));
  call("close", id);
  EXPECT_EQ(TIFFCurrentDirectory(tif.get()), 0U) << "closing left a foreign handle open";
}

TEST_F(FileId, UnpackingForCloseSkipsTheRegistry) {
  const vxArrayPtr forged = scalar<std::uint64_t>(12345);
  s_tagbridge_op* close = opname2opcode("close", 1);
  s_tagbridge_op* other = opname2opcode("isTiled", 1);
  clearRecord();
  EXPECT_EQ(unpackTiffFileId(forged.get(), close), reinterpret_cast<TIFF*>(12345));
  expectError<Tiff::invalidFileId>({}, [&] { unpackTiffFileId(forged.get(), other); });
  clearRecord();
  expectError<Tiff::invalidFileId>({}, [&] { unpackTiffFileId(forged.get()); });
  clearRecord();
  expectError<Tiff::badFileId>({}, [&] { unpackTiffFileId(row({0}).get(), close); });
  clearRecord();
  expectError<Tiff::badFileId>({}, [&] { getFileID(row({0}).get()); });
}

// --- Cleanup

class Cleanup : public FileId {
 protected:
  // Opens copies of the file and returns their identifiers with their names.
  std::map<std::uint64_t, std::filesystem::path> openThree(std::vector<vxArrayPtr>& ids) const {
    std::map<std::uint64_t, std::filesystem::path> byAddress;
    for (const char* name : {"b.tif", "a.tif", "c\xC3\xA9.tif"}) {
      std::filesystem::copy_file(path_, folder_ / name);
      ids.push_back(call("open", text((folder_ / name).u16string()), "r"));
      byAddress[addressIn(ids.back())] = folder_ / name;
    }
    return byAddress;
  }

  static void cleanUp() {
    clearRecord();
    TagBridgeCleanup();
  }
};

TEST_F(Cleanup, WarnsOfEveryOpenFileInAscendingOrderAndClosesIt) {
  const std::size_t before = openDescriptors();
  std::vector<vxArrayPtr> ids;
  std::vector<Message> expected;
  for (const auto& [address, path] : openThree(ids))
    expected.push_back(warningOf(Warning::closingFileHandle, {path.u16string()}));

  cleanUp();
  EXPECT_EQ(warnings(), expected);
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(Cleanup, LeavesHandlesRegisteredButUnusable) {
  const vxArrayPtr id = open();
  TIFF* tif = getFileID(id.get());
  cleanUp();
  EXPECT_FALSE(TiffFilePointerIsInvalid(tif));
  expectError<Tiff::invalidFileId>({}, [&] { call("currentDirectory", id); });
  expectError<Tiff::invalidFileId>({}, [&] { call("getField", id, TIFFTAG_IMAGEWIDTH); });

  call("close", id);
  EXPECT_TRUE(TiffFilePointerIsInvalid(tif));
}

TEST_F(Cleanup, SecondTimeFindsNothingToClose) {
  const vxArrayPtr id = open();
  cleanUp();
  cleanUp();
  EXPECT_THAT(warnings(), IsEmpty());
  call("close", id);
}

TEST_F(Cleanup, HandleOpenedAtTheAddressOfAClosedOneIsUsable) {
  const vxArrayPtr stale = open();
  cleanUp();
  // The allocator hands the same address out again sooner or later; registering says what follows.
  TIFF* sameAddress = getFileID(stale.get());
  TiffAtExitRegister(sameAddress);
  EXPECT_EQ(unpackTiffFileId(stale.get()), sameAddress);
  TiffAtExitUnregister(sameAddress);
}

TEST_F(Cleanup, FileOpenedAtTheAddressOfAClosedOneIsOpen) {
  const vxArrayPtr stale = open();
  cleanUp();
  std::vector<vxArrayPtr> ids;
  const auto isThere = [&] { return addressIn(ids.back()) == addressIn(stale); };
  do ids.push_back(open());
  while (!isThere() && ids.size() < 100);
  if (isThere()) {
    EXPECT_EQ(numberFrom("currentDirectory", stale), 1);
  }
  const bool wasThere = isThere();
  for (const vxArrayPtr& id : ids) call("close", id);
  if (!wasThere) GTEST_SKIP() << "the allocator gives the address to nobody";
}

TEST_F(Cleanup, GoesOnWhenTheHostStopsAtAWarning) {
  const std::size_t before = openDescriptors();
  std::vector<vxArrayPtr> ids;
  openThree(ids);
  int asked = 0;
  runtime::setWarningSink([&asked](const resource_core::BaseMsgID&) {
    ++asked;
    throw std::runtime_error("stop");
  });
  EXPECT_NO_THROW(cleanUp());
  recordAgain();
  EXPECT_EQ(asked, 3);
  EXPECT_EQ(openDescriptors(), before);
  for (const vxArrayPtr& id : ids) call("close", id);
}

TEST_F(Cleanup, PutsLibtiffsHandlersBackAndTheNextCallInstallsThemAgain) {
  TIFFSetErrorHandler(nullptr);
  call("getVersion");
  cleanUp();
  EXPECT_EQ(TIFFSetErrorHandler(nullptr), nullptr);
  call("getVersion");
  EXPECT_NE(TIFFSetErrorHandler(nullptr), nullptr);
}

TEST_F(Cleanup, ForgetsTheGeoTagsAndTheNextOpenKnowsThemAgain) {
  { const OpenedFile file(path_, "r"); }
  cleanUp();
  const TiffHandle foreign = openTiff(path_, "r");
  EXPECT_EQ(TIFFFindField(foreign.get(), tiffutils::kModelPixelScaleTag, TIFF_ANY), nullptr);

  const OpenedFile file(path_, "r");
  const TIFFField* field = TIFFFindField(file.handle(), tiffutils::kModelPixelScaleTag, TIFF_ANY);
  ASSERT_NE(field, nullptr);
  EXPECT_EQ(TIFFFieldDataType(field), TIFF_DOUBLE);
}

}  // namespace
}  // namespace tb::test
