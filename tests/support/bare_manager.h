// bare_manager.h - a manager record with its lists and locks but no task,
// for tests of registration, load and queries that must not race a save
// task. Unregisters whatever is left and releases the record at the end.
#ifndef KAVOR_TEST_BARE_MANAGER_H
#define KAVOR_TEST_BARE_MANAGER_H

#include <pthread.h>
#include <stdlib.h>

#include "kavor_private.h"

class BareManager {
public:
    BareManager()
    {
        m_ = static_cast<kavor_mobj_t *>(calloc(1, sizeof(kavor_mobj_t)));
        if (vn_mutex_init(&m_->mtx_ld) == 0)
            m_->mtx_ld_valid = 1;
        if (pthread_rwlock_init(&m_->fcom_rwlock, nullptr) == 0)
            m_->fcom_rwlock_valid = 1;
    }
    ~BareManager()
    {
        while (m_->fcom_lst != nullptr) {
            kavor_fcom_t *fcom = reinterpret_cast<kavor_fcom_t *>(m_->fcom_lst);
            kavor_unregister(reinterpret_cast<kavor_file_t *>(fcom->file_lst));
        }
        if (m_->mtx_ld_valid > 0)
            vn_mutex_destroy(&m_->mtx_ld);
        if (m_->fcom_rwlock_valid > 0)
            pthread_rwlock_destroy(&m_->fcom_rwlock);
        free(m_);
    }
    BareManager(const BareManager &) = delete;
    BareManager &operator=(const BareManager &) = delete;
    kavor_hdl get() const { return m_; }

private:
    kavor_mobj_t *m_;
};

#endif
