#pragma once

#include <boost/filesystem/path.hpp>

#include "common/exception.h"
#include "common/message_format.h"
#include "data_object/i_data_object.h"

namespace integrity_check_tool::data_object {

// A file on disk. Every failure met while answering becomes one Exception
// "Can't read or access file %1%. Reason: %2%".
class File : public IDataObject {
public:
    explicit File(boost::filesystem::path path);

    std::string GetTypeName() const override;
    // True exactly for an existing regular file; a directory, FIFO, device or
    // missing path is not one, and nothing is opened to find out.
    bool IsExists() const override;
    // A stream over the file's contents, read with WOW64 redirection off.
    // Anything but a regular file, judged on the opened handle, is "File %1%
    // not found".
    ruk::intrusive_ptr<ruk::IIO> GetData() const override;

    const boost::filesystem::path& GetPath() const { return path_; }

    // Runs `operation` and turns any failure into the file's single error.
    template <typename Operation>
    auto UnifyError(Operation&& operation) const -> decltype(operation()) {
        try {
            return operation();
        } catch (...) {
            ICT_THROW(Exception(
                MessageFormat(CantReadOrAccess(), path_.string(), CurrentExceptionText())));
        }
    }

    static const char* CantReadOrAccess();
    static const char* NotFound();

private:
    boost::filesystem::path path_;
};

}  // namespace integrity_check_tool::data_object
