// A history as a person has one: some days of work on a small shop, for the pictures that a person looks at.
import fs from 'node:fs';
import path from 'node:path';

const prices = (tax, rounding) => `"""What a book costs, to the cent."""

from decimal import Decimal, ROUND_HALF_UP

TAX = Decimal("${tax}")
CENT = Decimal("0.01")


def with_tax(net: Decimal) -> Decimal:
    """The price that the shop shows."""
${rounding ? '    return (net * (1 + TAX)).quantize(CENT, ROUND_HALF_UP)' : '    return net * (1 + TAX)'}


def shipping(weight: int) -> Decimal:
    """By weight in grams: the first kilogram is one parcel."""
    parcels = -(-weight // 1000)
    return parcels * Decimal("4.90")
`;
const cart = (discount, rounding) => `"""A cart of books."""

from prices import shipping, with_tax${rounding ? ', CENT' : ''}


class Cart:
    def __init__(self):
        self.books = {}

    def add(self, book, count=1):
        if count < 1:
            raise ValueError(f"count must be positive, got {count}")
        self.books[book] = self.books.get(book, 0) + count

    def total(self):
        goods = sum(with_tax(book.price) * count for book, count in self.books.items())
${discount ? `        if sum(self.books.values()) >= 10:
            goods *= Decimal("0.95")  # ten books or more
` : ''}        weight = sum(book.weight * count for book, count in self.books.items())
        return ${rounding ? '(goods + shipping(weight)).quantize(CENT)' : 'goods + shipping(weight)'}
`;
const server = port => `from http.server import ThreadingHTTPServer

from pages import Pages

if __name__ == "__main__":
    ThreadingHTTPServer(("", ${port}), Pages).serve_forever()
`;
const tests = `from decimal import Decimal

from cart import Cart


def test_total_is_in_whole_cents():
    cart = Cart()
    cart.add(book(price="7.77", weight=310), 3)
    assert cart.total() == Decimal("29.84")
`;
const logo = colour => `<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 120 80" width="240" height="160">
  <rect width="120" height="80" rx="10" fill="${colour}"/>
  <path d="M60 20C48 12 30 12 20 17v45c10-5 28-5 40 3 12-8 30-8 40-3V17c-10-5-28-5-40 3z" fill="#fff"/>
  <path d="M60 20v45" stroke="${colour}" stroke-width="3"/>
</svg>
`;

// Each snapshot gets a time of its own, as if the work had taken five hours.
function spread(store) {
    const [project] = fs.readdirSync(path.join(store, 'projects'));
    const folder = path.join(store, 'projects', project, 'snapshots');
    const names = fs.readdirSync(folder).filter(name => /^\d+\.json$/.test(name)).sort((a, b) => parseInt(a, 10) - parseInt(b, 10));
    const step = 5 * 60 / names.length;
    names.forEach((name, at) => {
        const record = JSON.parse(fs.readFileSync(path.join(folder, name), 'utf8'));
        const minutes = (names.length - at) * step + (at % 3) * 7;
        record.created = new Date(Date.now() - minutes * 60000).toISOString().replace(/\.\d+Z/, 'Z');
        fs.writeFileSync(path.join(folder, name), JSON.stringify(record));
    });
}

/** @param {any} place the project's folder and what is done in it, as browse.mjs has it */
export function makeDemo(place) {
    const {write, remove, turn, hook} = place;
    write('README.md', '# Bookshop\n\nRun it with `python3 src/server.py`.\n');
    write('src/server.py', server(8000));
    write('src/prices.py', prices('0.07', false));
    write('.env', 'SHOP_KEY=not-for-git\n');
    write('static/logo.svg', logo('#1f4fa3'));
    place.tidewrack(['track']);
    turn('claude', '6f1c', 'Add a cart with tax and shipping', () => write('src/cart.py', cart(false, false)));
    write('README.md', '# Bookshop\n\nRun it with `python3 src/server.py`, then open port 8000.\n');
    turn('codex', '0197', 'Let the port be 8080, as the proxy expects', () => {
        write('src/server.py', server(8080));
        write('README.md', '# Bookshop\n\nRun it with `python3 src/server.py`, then open port 8080.\n');
    });
    turn('claude', '6f1c', 'Ten books or more get five per cent off', () => write('src/cart.py', cart(true, false)));
    place.tidewrack(['snap', '--label=before the new logo']);
    turn('cursor', 'c-41', 'The logo in our new colour', () => write('static/logo.svg', logo('#0b5f6b')));
    turn('claude', '8d2e', 'Totals have too many digits: round to whole cents, and test it', () => {
        hook('git checkout -- src/prices.py');
        write('src/prices.py', prices('0.07', true));
        write('src/cart.py', cart(true, true));
        write('tests/test_cart.py', tests);
        hook('rm -rf .env dist');
        remove('.env');
    });
    write('src/pages.py', 'class Pages:\n    pass\n');
    turn('codex', '0198', 'Answer a health check', () => write('src/health.py', 'def health():\n    return 200, "ok"\n'));
    spread(place.store);
}
