/** The bundled observer that this test run belongs to. */
declare const TEST_OBSERVER_PATH: string;
/** The folder of the fixtures that the application's tests read too. */
declare const TEST_FIXTURES_PATH: string;
/** The program that is a real server for buckets. */
declare const TEST_OBJECT_STORE_PATH: string;
