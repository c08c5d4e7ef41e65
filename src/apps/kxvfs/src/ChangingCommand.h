#pragma once

#include <apps/kxvfs/src/Command.h>
#include <apps/kxvfs/src/Session.h>

namespace apps::kxvfs {

/// A command that changes storage: locks, then changes, then one write of each archive.
class ChangingCommand : public Command {
public:
    void run(Session& session) final {
        lock(session);
        try {
            change(session);
        } catch (...) {
            // What was done until then is saved as after any failure, and told when it cannot be.
            session.commit();
            throw;
        }
        session.commit();
    }

    /// Session::lock for everything that change() will change.
    virtual void lock(Session& session) = 0;
    /// Changes without writing archives. What it changes is locked.
    virtual void change(Session& session) = 0;
};

} // namespace apps::kxvfs
