"""Picking cells out of a table by pairs of positions."""

import numpy as np
import pytest

INT64 = np.dtype(np.int64)
INT32 = np.dtype(np.int32)


@pytest.fixture(params=[INT64, INT32], ids=str)
def query(request, module):
    """The kernel of one integer width, on positions given as lists."""
    kernel = getattr(module, f"query_data_{request.param}")
    return lambda table, rows, columns: kernel(
        table, np.array(rows, request.param), np.array(columns, request.param)
    )


@pytest.mark.parametrize(
    ("dtype", "fill"),
    [(np.float64, np.nan), (np.int64, -1), (np.int8, -1), (np.bool_, False), (object, None)],
)
def test_cells_are_those_of_numpy_and_missing_columns_the_fill_value(query, dtype, fill):
    table = np.arange(12).reshape(3, 4).astype(dtype)
    rows, columns = [0, 2, -1, 2, 5, 1], [0, 3, 1, -2, -1, 2]
    expected = [table[r, c] if c != -1 else fill for r, c in zip(rows, columns, strict=True)]
    frozen = table.copy()
    frozen.flags.writeable = False
    stretched = np.repeat(table, 2, axis=1)[:, ::2]
    for layout in (frozen, np.asfortranarray(table), stretched, table.view(Sub)):
        cells = query(layout, rows, columns)
        assert type(cells) is list
        np.testing.assert_equal(cells, expected)
        assert [type(cell) for cell in cells] == [type(cell) for cell in expected]
    assert query(table, [], []) == []


class Sub(np.ndarray):
    pass


def test_a_subclass_of_the_array_answers_through_its_own_item_access(module):
    class Offset(np.ndarray):
        def __getitem__(self, key):
            return key

    positions = np.array([4], np.int64)
    assert module.query_data_int64(np.zeros((2, 2)).view(Offset), positions, positions) == [(4, 4)]


def test_positions_may_be_strided_or_read_only(module):
    table = np.arange(6.0).reshape(2, 3)
    backwards, frozen = np.array([2, 1, 0])[::-1], np.array([0, 1, 1])
    frozen.flags.writeable = False
    for rows in (frozen, memoryview(frozen)):
        assert module.query_data_int64(df=table, idx_d=rows, idx_s=backwards) == [0.0, 4.0, 5.0]


def test_wrong_tables_and_positions_are_refused(module, query):
    table, one = np.zeros((2, 2)), np.zeros(1, np.int64)
    for dtype in (np.int32, np.float32, ">f8", "datetime64[ns]", "U3"):
        with pytest.raises(ValueError, match="^Unsupported dtype$"):
            query(table.astype(dtype), [], [])
    for row, column in ((2, 0), (0, 2), (-3, 0), (0, -3)):
        with pytest.raises(IndexError, match="is out of bounds for axis"):
            query(table, [0, row], [0, column])
    with pytest.raises(IndexError, match="too many indices"):
        query(np.zeros(2), [0], [0])
    with pytest.raises(TypeError) as refused:
        query([[1.0]], [0], [0])
    assert str(refused.value) == (
        "Argument 'df' has incorrect type (expected numpy.ndarray, got list)"
    )
    mismatches = [
        (one.astype(np.int32), "expected 'int64_t' but got 'int'"),
        (one.astype(float), "expected 'int64_t' but got 'double'"),
        (one.astype(np.uint64), "expected 'int64_t' but got 'unsigned long'"),
        (one.astype(">i8"), "expected 'int64_t' but got format '>q'"),
        (one.reshape(1, 1), "expected 1-dimensional 'int64_t' but got 2-dimensional 'long'"),
    ]
    for positions, text in mismatches:
        for rows, columns in ((positions, one), (one, positions)):
            with pytest.raises(ValueError) as refused:
                module.query_data_int64(table, rows, columns)
            assert str(refused.value) == f"Buffer dtype mismatch, {text}"
    with pytest.raises(TypeError, match="bytes-like object is required"):
        module.query_data_int64(table, [0], one)
    with pytest.raises(ValueError, match="idx_s must be at least as long as idx_d"):
        query(table, [0, 0], [0])
