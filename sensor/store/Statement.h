// A statement of SQLite's that is prepared once and run often.
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <concepts>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

/// Goes before its database does. A failed run leaves it ready for the next one. Throws SQLite::Exception.
class ZTCStatement {
  public:
    ZTCStatement(SQLite::Database& arDatabase, const char* apText) : mStatement(arDatabase, apText) {}

    /// Runs it with these values. Returns how many rows it has changed.
    template <class... Values>
    int run(const Values&... acrValues) {
        const Run lRun(mStatement, acrValues...);
        return mStatement.exec();
    }
    /// The first column of the first row; nothing if there is no row, or it is NULL.
    template <class... Values>
    std::optional<std::int64_t> findNumber(const Values&... acrValues) {
        const Run lRun(mStatement, acrValues...);
        if (!mStatement.executeStep() || mStatement.isColumnNull(0)) {
            return {};
        }
        return mStatement.getColumn(0).getInt64();
    }
    /// Hands each row to a function, which is not to run this statement.
    template <class Take, class... Values>
    void forEach(const Take& acrTake, const Values&... acrValues) {
        const Run lRun(mStatement, acrValues...);
        while (mStatement.executeStep()) {
            acrTake(mStatement);
        }
    }

  private:
    // The values are not copied: they live as long as the run.
    class Run {
      public:
        template <class... Values>
        explicit Run(SQLite::Statement& arStatement, const Values&... acrValues) : mrStatement(arStatement) {
            mrStatement.tryReset();
            int lAt = 0;
            (bind(++lAt, acrValues), ...);
        }
        ~Run() { mrStatement.tryReset(); }
        Run(const Run&) = delete;
        Run& operator=(const Run&) = delete;

      private:
        void bind(int aAt, std::integral auto aValue) {
            mrStatement.bind(aAt, static_cast<std::int64_t>(aValue));
        }
        void bind(int aAt, const std::string& acrText) { mrStatement.bindNoCopy(aAt, acrText); }
        // A pointer that is null would be NULL.
        void bind(int aAt, std::span<const std::uint8_t> aBytes) {
            mrStatement.bindNoCopy(aAt, aBytes.empty() ? static_cast<const void*>("") : aBytes.data(),
                                   static_cast<int>(aBytes.size()));
        }
        template <class Value>
        void bind(int aAt, const std::optional<Value>& acrValue) {
            acrValue ? bind(aAt, *acrValue) : mrStatement.bind(aAt);
        }

        SQLite::Statement& mrStatement;
    };

    SQLite::Statement mStatement;
};
