#include "corvex/core/report/label_match.hpp"

#include "corvex/core/report/module_globals.hpp"

namespace corvex::report {

namespace {

/// The entry of a dictionary, or none.
nb::object entry(const nb::dict& entries, nb::handle key) {
    PyObject* const found = PyDict_GetItemWithError(entries.ptr(), key.ptr());
    if (found == nullptr && PyErr_Occurred() != nullptr) {
        throw nb::python_error();
    }
    return nb::borrow<nb::object>(found);
}

nb::list texts(nb::handle labels) {
    nb::list result;
    pyglue::for_each(plain_list(labels), [&](const nb::object& label) {
        result.append(pyglue::to_text(label));
        return true;
    });
    return result;
}

/// The places of a table's labels.
class KnownLabels {
  public:
    explicit KnownLabels(nb::handle labels) : labels_(texts(labels)) {
        for (std::size_t i = labels_.size(); i-- > 0;) { // backwards: the first one stays
            whole_[labels_[i]] = pyglue::integer(static_cast<Py_ssize_t>(i));
        }
    }

    [[nodiscard]] nb::object by_label(nb::handle label) const { return entry(whole_, label); }

    /// Prepares `by_id` for these labels: what one of them names in whole is no other's.
    void prepare_ids(const nb::list& asked_for) {
        const nb::object taken = pyglue::builtin("frozenset")(asked_for);
        for (const auto [label, place] : whole_) {
            const nb::object id = label_id(label);
            const bool unclear = entry(ids_, id).is_valid() || pyglue::contains(taken, label);
            ids_[id] = unclear ? nb::none() : nb::borrow<nb::object>(place);
        }
    }

    /// None where the id does not tell.
    [[nodiscard]] nb::object by_id(nb::handle label) const { return entry(ids_, label_id(label)); }

  private:
    nb::list labels_;
    nb::dict whole_;
    nb::dict ids_;
};

} // namespace

nb::object label_id(nb::handle label) {
    return pyglue::to_text(label).attr("partition")(pyglue::text(" "))[0];
}

nb::object plain_list(nb::handle labels) {
    return nb::hasattr(labels, "tolist") ? nb::object(labels.attr("tolist")())
                                         : nb::borrow<nb::object>(labels);
}

nb::object label_positions(nb::handle labels, nb::handle known) {
    const nb::list wanted = texts(labels);
    KnownLabels table(known);
    bool ids_are_ready = false;
    nb::list places;
    for (const nb::handle label : wanted) {
        nb::object place = table.by_label(label);
        if (!place.is_valid()) {
            if (!ids_are_ready) {
                table.prepare_ids(wanted);
                ids_are_ready = true;
            }
            place = table.by_id(label);
        }
        places.append(place.is_valid() && !place.is_none() ? place : pyglue::integer(-1));
    }
    return global("np").attr("array")(places, nb::arg("dtype") = global("np").attr("int64"));
}

} // namespace corvex::report
