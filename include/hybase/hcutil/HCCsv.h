/// @file
/// @ingroup configuration
/// A comma-separated file as a table in memory, asked by row and column.
#ifndef HYBASE_HCUTIL_HCCSV_H
#define HYBASE_HCUTIL_HCCSV_H

#include <hybase/export.h>
#include <stddef.h>
#include <stdint.h>

#include <string>

/// A comma-separated file as a table in memory, asked by row and column.
///
///     name,port,level         csv.Open("/etc/channels.csv");
///     front,8001,2            csv.GetValue("front", "port", text);   // "8001"
///     garden,8002,1           csv.GetValue(3, 1, text);              // "garden"
///
/// Rows and columns count from 1. Row 1 is the heading, column 1 has the names of the rows. A line
/// ends with LF or CR LF, the last one also with the file; a carriage return elsewhere is part of
/// its field. Every comma separates, nothing is quoted or escaped. The first line tells the number
/// of columns: in a shorter line the missing cells are empty, in a longer one what is too much is
/// ignored. A zero byte ends the table.
///
/// Failures leave an ERR record. Nothing throws; a value there is no memory for is empty.
/// @par Threads
/// One thread an object.
///
/// @ingroup configuration
class HYBASE_API HCCsv {
  public:
    HCCsv();  ///< no table

    /// Closes.
    ~HCCsv();

    HCCsv(const HCCsv&) = delete;  ///< not to be copied
    HCCsv& operator=(const HCCsv&) = delete;

    /// Reads a whole file; what was open is closed first. Returns 0, or -1 when the file cannot be
    /// opened, is no regular file (such a one is not opened at all), is longer than 2147483646
    /// bytes or has no line, or when memory is short.
    int Open(const char* path);

    /// Frees the table. The counts stay, the cells are gone. Always 0.
    int Close();

    /// The step of Open that splits the text in place. -1 if there is no text, or no line in it, or
    /// if memory is short. What is split already stays as it is, and gives -1 too.
    int parseCsv();

    int GetRowCnt();     ///< rows of the last table opened, the heading included
    int GetColumnCnt();  ///< columns of the last table opened

    /// The first row whose cell in column 1 is `name`; -1 if there is none. Looks at one cell after
    /// the other.
    int getrow(const char* name);

    /// The first column whose cell in row 1 is `name`, in the same way.
    int getcol(const char* name);

    /// Sets `value` to a cell, to nothing if there is no such cell, and returns `value`.
    std::string& GetValue(int row, int col, std::string& value);

    /// The same, with row and column found by their names (getrow, getcol).
    std::string& GetValue(const char* row_name, const char* col_name, std::string& value);

    /// The same, with the row found by its name.
    std::string& GetValue(const char* row_name, int col, std::string& value);

    /// The same, with the column found by its name.
    std::string& GetValue(int row, const char* col_name, std::string& value);

  private:
    int Split(size_t length);

    char* data;     // the text, the cells point into it
    char*** cells;  // of row r from cells[r - 1] to cells[r], which is cells[rows] for the last one
    int32_t rows;
    int32_t cols;
};

#endif
